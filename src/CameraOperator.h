// The one object behind the handler table: the camera's whole state, and everything that is done to it.
//
// Operations ending in Inner are the table's. Unless a comment says otherwise, operations run on the
// platform's calling thread, one at a time, answer true for success and log their own failure. An index out
// of range, a malformed id and a device without a name fail without a message, and so does an exception,
// which the table's functions turn into a result.
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

// The encoder thread's entry.
void EncodeThreadEntry();

class CameraOperator {
 public:
  // Initialises COM on the constructing thread.
  CameraOperator();
  CameraOperator(const CameraOperator&) = delete;
  CameraOperator& operator=(const CameraOperator&) = delete;
  // Stops a running graph, tears down and ends COM.
  virtual ~CameraOperator();

  // The process-wide operator, made by the first call from any thread and destroyed when the library is
  // unloaded.
  static CameraOperator& GetInstance();

  // --- Service: CameraOperator.cpp ---

  int SetSendDataCallback(void* ignored, std::uint32_t ignoredLen, SendDataCallback callback);
  int SetServiceListener(const NUVEQServiceListener* listener);
  int OpenCameraInner(const NUVEQCameraParam* param);
  bool CloseCameraInner(const char* id, std::uint32_t idLen);
  void UpdateServiceStatusToNuveq(const char* id, std::uint32_t idLen, NUVEQServiceStatus status);
  void UpdateServiceActionToNuveq(const char* id, std::uint32_t idLen, NUVEQServiceAction& action);
  // Tears everything down but the running graph, which the caller has stopped.
  void StopCapture();
  // Unpins the module once there is no graph to close any more. The caller returns to the host without
  // calling anything else, and no other frame of the library is on its stack.
  void UnpinModuleAfterClose();
  // True inside the data callback and what it calls.
  bool IsOnEncodeThread() const { return m_encodeThreadId == std::this_thread::get_id(); }

  // --- Which camera is built in: CameraOperatorDevices.cpp ---

  // Instance ids of the first child node of every present USB device that cannot be unplugged.
  std::vector<std::string> QueryFixedUsbDeviceIds();
  // The display name in UTF-8; empty on failure. Throws std::range_error for text that is no Unicode.
  std::string GetMonikerDisplayName(const ComPtr<IMoniker>& moniker);
  // The first of the display names that belongs to a USB device which cannot be unplugged, or "".
  std::string FindPCCameraName(const std::vector<std::string>& displayNames);
  // The number of accepted cameras, 0 or 1. Rebuilds the list of their names.
  unsigned int CameraCount();
  // Binds an accepted camera to its capture filter. True with the filter untouched when the camera has gone
  // since CameraCount; the caller meets a null filter then.
  bool BindDeviceFilter(unsigned int cameraIndex, IBaseFilter** filter);
  // Reads a camera id: decimal digits, none meaning 0; more than fit in an int mean the greatest int.
  bool ParseCameraId(const char* id, std::uint32_t idLen, unsigned int* cameraIndex);

  // --- What it can deliver: CameraOperatorMedia.cpp ---

  // Intervals are in units of 100 ns; both directions round down.
  unsigned int AvgTimePerFrameToFps(const __int64 avgTimePerFrame);
  __int64 FpsToAvgTimePerFrame(const unsigned int fps);
  // Appends one reference per pin, the caller's to release.
  bool EnumPins(IBaseFilter* devFilter, std::vector<IPin*>& pins);
  void ParseMediaType(const AM_MEDIA_TYPE& mediaType, std::vector<GUID>& subTypes,
                      std::vector<tagSIZE>& sizes, std::vector<unsigned int>& fpsList);
  bool QueryCameraPinInfo(const std::vector<IPin*>& pins, std::vector<GUID>& subTypes,
                          std::vector<tagSIZE>& sizes, std::vector<unsigned int>& fpsList);
  // Appends the camera's sizes, subtypes and rates (in thousandths) and refills the capability table.
  bool GetCameraCapabilities(unsigned int cameraIndex, std::vector<tagSIZE>& sizes,
                             std::vector<GUID>& subTypes, std::vector<unsigned int>& fpsList);
  void SortAndUniqueCapabilities(std::vector<tagSIZE>& sizes, std::vector<GUID>& subTypes,
                                 std::vector<unsigned int>& fpsList);

  // --- Capability records: CameraOperatorCapability.cpp ---

  int GetCameraCapabilityInner(NUVEQCameraCapabilities** allAbilities, unsigned int* cameraNum);
  void FreeCameraCapabilities(int ignored, NUVEQCameraCapabilities* capabilities, unsigned int count);

  // --- The capture graph: CameraOperatorGraph.cpp, CameraOperatorFormat.cpp ---

  // Builds and connects the graph; does not run it.
  bool OpenCamera(unsigned int cameraIndex, std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                  GUID subType);
  bool InitCameraBasicInfo(IGraphBuilder** graphBuilder);
  bool AddDeviceFilter(unsigned int cameraIndex, IGraphBuilder* graphBuilder, IBaseFilter** deviceFilter);
  bool AddSampleGrabberFilter(IGraphBuilder* graphBuilder, std::uint32_t width, std::uint32_t height,
                              IBaseFilter** grabberFilter);
  // The filter's first pin of that direction.
  bool QueryFilterPin(IBaseFilter* filter, PIN_DIRECTION direction, IPin** pin);
  bool SetCameraFormat(IPin* outputPin, std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                       GUID subType);
  bool ConfigSampleGrabber(IBaseFilter* grabberFilter, std::uint32_t width, std::uint32_t height);

  // --- Frames to packets: CameraOperatorEncode.cpp ---

  bool InitVideoEncoder(const VideoEncoder::EncodeParam& param);
  // The encoder thread's body: returns once it is told to stop.
  void EncodeH264();
  void StopEncodeThread();
  // Copies one frame into a free buffer, waiting for one, and queues it. On the graph's streaming thread.
  void PushFrame(const std::uint8_t* bytes, std::int32_t length);

 private:
  // Tests reach states through it that no sequence of calls leads to.
  friend struct CameraOperatorTestAccess;
  friend void EncodeThreadEntry();

  class TearDown;
  class EncodeThreadMark;

  VideoEncoder::EncodeParam MakeEncodeParam(const NUVEQCameraParam& param) const;
  void StartEncodeThread();
  void StopGraph();
  // Hands a packet to the platform under the camera's id, copied into a string that the caller keeps for
  // reuse. The platform's result; 0 without a callback.
  std::int32_t SendPacket(const AVEncodePacket& packet, std::string& id);
  // Counts a buffer that leaves circulation until the pool is torn down.
  void LoseBuffer();
  bool AreAllBuffersLost() const;
  // Frees the stopped pool, once nobody copies into it.
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
  UnpinTiming m_unpinTiming = UnpinTiming::kSoon;
  // A refused open request replaces the id while the encoder thread sends packets under it.
  std::mutex m_cameraIdMutex;
  // The encoder thread while it runs; set and cleared by its entry.
  std::atomic<std::thread::id> m_encodeThreadId{};
  // Buffers that have left circulation since the pool was made.
  std::atomic<std::uint32_t> m_lostBuffers = 0;
  // Set while a thread waits for the graph to stop.
  std::atomic<bool> m_stoppingGraph = false;
  // Frames on their way into the pool, and a bar to more of them while the pool is freed: not every graph has
  // stopped calling when it says that it has stopped.
  std::atomic<std::uint32_t> m_framesUnderWay = 0;
  std::atomic<bool> m_freeingPool = false;
};
