// The process-wide object behind the handler table. Holds the camera's state and implements its operations.
//
// Operations whose name ends in Inner implement table functions. Unless noted otherwise, operations run on
// the host's calling thread, one at a time, return true on success and log their failure. An index out of
// range, a malformed id, a device without a name and an exception fail without logging. The table's functions
// convert exceptions to results.
//
//   Idle --InitVideoEncoder--> Encoder ready --OpenCamera--> Graph built --Run, thread start--> Running
//   any state with a graph --CloseCameraInner--> Idle; any state --StopCapture--> Idle
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DirectShow.h"
#include "FrameBufQueue.h"
#include "Module.h"
#include "MultiMediaEncoder.h"
#include "NUVEQCameraHandler.h"
#include "SampleGrabberCB.h"
#include "com/ComPtr.h"

// Thread function of the encoder thread.
void EncodeThreadEntry();

class CameraOperator {
 public:
  // Initialises COM on the calling thread.
  CameraOperator();
  CameraOperator(const CameraOperator&) = delete;
  CameraOperator& operator=(const CameraOperator&) = delete;
  // Stops a running graph, tears down and uninitialises COM.
  virtual ~CameraOperator();

  // The process-wide operator. Created by the first call on any thread, destroyed when the library is
  // unloaded.
  static CameraOperator& GetInstance();

  // --- Service: CameraOperator.cpp ---

  int SetSendDataCallback(void* ignored, std::uint32_t ignoredLen, SendDataCallback callback);
  int SetServiceListener(const NUVEQServiceListener* listener);
  int OpenCameraInner(const NUVEQCameraParam* param);
  bool CloseCameraInner(const char* id, std::uint32_t idLen);
  void UpdateServiceStatusToNuveq(const char* id, std::uint32_t idLen, NUVEQServiceStatus status);
  void UpdateServiceActionToNuveq(const char* id, std::uint32_t idLen, NUVEQServiceAction& action);
  // Tears down everything. The caller has stopped the graph.
  void StopCapture();
  // Unpins the module if there is no graph to close. The caller must return to the host without calling
  // anything else, and must be the only function of the library on its stack.
  void UnpinModuleAfterClose();
  // True inside the data callback and in functions that it calls.
  bool IsOnEncodeThread() const { return m_encodeThreadId == std::this_thread::get_id(); }

  // --- Devices: CameraOperatorDevices.cpp ---

  // Returns the instance id of the first child node of every present, non-removable USB device.
  std::vector<std::string> QueryFixedUsbDeviceIds();
  // Returns the display name in UTF-8; empty on failure. Throws std::range_error for invalid UTF-16.
  std::string GetMonikerDisplayName(const ComPtr<IMoniker>& moniker);
  // Returns the first display name that belongs to a non-removable USB device; empty if there is none.
  std::string FindPCCameraName(const std::vector<std::string>& displayNames);
  // Returns the number of built-in cameras, 0 or 1, and rebuilds the list of their names.
  unsigned int CameraCount();
  // Binds a camera of that list to its capture filter. If the camera has been disconnected since CameraCount,
  // returns true and leaves *filter unchanged; callers must check for null.
  bool BindDeviceFilter(unsigned int cameraIndex, IBaseFilter** filter);
  // Parses a camera id of decimal digits. An empty id is 0; values above INT_MAX become INT_MAX.
  bool ParseCameraId(const char* id, std::uint32_t idLen, unsigned int* cameraIndex);

  // --- Media types and frame rates: CameraOperatorMedia.cpp ---

  // Intervals are in units of 100 ns. Both conversions round down.
  unsigned int AvgTimePerFrameToFps(const __int64 avgTimePerFrame);
  __int64 FpsToAvgTimePerFrame(const unsigned int fps);
  // Appends the filter's pins. The caller releases each of them.
  bool EnumPins(IBaseFilter* devFilter, std::vector<IPin*>& pins);
  void ParseMediaType(const AM_MEDIA_TYPE& mediaType, std::vector<GUID>& subTypes,
                      std::vector<tagSIZE>& sizes, std::vector<unsigned int>& fpsList);
  bool QueryCameraPinInfo(const std::vector<IPin*>& pins, std::vector<GUID>& subTypes,
                          std::vector<tagSIZE>& sizes, std::vector<unsigned int>& fpsList);
  // Appends the camera's sizes in pixels, subtypes, and rates in thousandths of a frame per second, and
  // refills the capability table.
  bool GetCameraCapabilities(unsigned int cameraIndex, std::vector<tagSIZE>& sizes,
                             std::vector<GUID>& subTypes, std::vector<unsigned int>& fpsList);
  void SortAndUniqueCapabilities(std::vector<tagSIZE>& sizes, std::vector<GUID>& subTypes,
                                 std::vector<unsigned int>& fpsList);

  // --- Capability records: CameraOperatorCapability.cpp ---

  int GetCameraCapabilityInner(NUVEQCameraCapabilities** allAbilities, unsigned int* cameraNum);
  void FreeCameraCapabilities(int ignored, NUVEQCameraCapabilities* capabilities, unsigned int count);

  // --- The capture graph: CameraOperatorGraph.cpp, CameraOperatorFormat.cpp ---

  // Builds and connects the graph without running it.
  bool OpenCamera(unsigned int cameraIndex, std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                  GUID subType);
  bool InitCameraBasicInfo(IGraphBuilder** graphBuilder);
  bool AddDeviceFilter(unsigned int cameraIndex, IGraphBuilder* graphBuilder, IBaseFilter** deviceFilter);
  bool AddSampleGrabberFilter(IGraphBuilder* graphBuilder, std::uint32_t width, std::uint32_t height,
                              IBaseFilter** grabberFilter);
  // Finds the filter's first pin of the given direction.
  bool QueryFilterPin(IBaseFilter* filter, PIN_DIRECTION direction, IPin** pin);
  bool SetCameraFormat(IPin* outputPin, std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                       GUID subType);
  bool ConfigSampleGrabber(IBaseFilter* grabberFilter, std::uint32_t width, std::uint32_t height);

  // --- Encoding: CameraOperatorEncode.cpp ---

  VideoEncoder::EncodeParam MakeEncodeParam(const NUVEQCameraParam& param) const;
  bool InitVideoEncoder(const VideoEncoder::EncodeParam& param);
  // Body of the encoder thread. Returns after StopEncodeThread or once the queue is stopped.
  void EncodeH264();
  void StopEncodeThread();
  // Waits for a free buffer, copies one frame of length bytes into it and queues it. Called on the graph's
  // streaming thread.
  void PushFrame(const std::uint8_t* bytes, std::int32_t length);

 private:
  // Gives tests access to states that no sequence of calls reaches.
  friend struct CameraOperatorTestAccess;
  friend void EncodeThreadEntry();

  class TeardownGuard;
  class EncodeThreadIdScope;

  void StartEncodeThread();
  void StopGraph();
  // Passes a packet and the camera's id to the data callback and returns its result; 0 without a callback.
  // id is a reusable buffer for the copy of the camera's id.
  std::int32_t SendPacket(const AVEncodePacket& packet, std::string& id);
  // Counts a buffer that stays unavailable until the pool is freed.
  void LoseBuffer();
  bool AreAllBuffersLost() const;
  // Frees the stopped pool after the last copy into it has ended.
  void FreePool();

  std::string m_cameraId;  // guarded by m_cameraIdMutex once the encoder thread runs
  bool m_isOpened = false;
  std::atomic<bool> m_stopEncode = true;
  FrameBufQueue m_frameBufQueue;
  std::thread m_encodeThread;
  SampleGrabberCB m_grabberCB;
  std::vector<std::string> m_cameraNames;  // UTF-8
  std::atomic<SendDataCallback> m_sendDataCallback = nullptr;
  ComPtr<IMediaControl> m_mediaControl;
  ComPtr<IMediaEvent> m_mediaEvent;
  std::atomic<ServiceStatusCallback> m_statusCallback = nullptr;
  std::atomic<ServiceActionCallback> m_actionCallback = nullptr;
  VideoEncoder* m_videoEncoder = nullptr;

  bool m_isClosing = false;
  bool m_isModulePinned = false;
  platform::UnpinTiming m_unpinTiming = platform::UnpinTiming::kSoon;
  // A refused open request replaces the id while the encoder thread uses it.
  std::mutex m_cameraIdMutex;
  // Id of the encoder thread while it runs; set and cleared by EncodeThreadEntry.
  std::atomic<std::thread::id> m_encodeThreadId;
  // Buffers lost since the pool was created.
  std::atomic<std::uint32_t> m_lostBuffers = 0;
  // Set while a thread waits for the graph to stop.
  std::atomic<bool> m_isStoppingGraph = false;
  // Number of PushFrame calls that may use the pool, and the flag that rejects new frames during pool
  // teardown. Some graphs still deliver frames after Stop has returned.
  std::atomic<std::uint32_t> m_framesInProgress = 0;
  std::atomic<bool> m_rejectFrames = false;
};
