// Reference model of the library: predicts all platform calls, log lines, reports, results and live objects
// of a run from the documented behaviour.
#pragma once

#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "FaultInjection.h"
#include "Run.h"
#include "Scenarios.h"

namespace fault {

// Fate of a frame that the graph delivers.
enum class FrameFate {
  kEncoded,  // encoded by the encoder thread
  kQueued,   // stays in the queue
  kLost,     // lost, because its buffer has no memory
  kWaiting,  // waits for a buffer until the camera is closed
  kRefused   // refused, because no graph runs
};

class ReferenceModel final : public Run {
 public:
  explicit ReferenceModel(Faults& faults) : m_faults(faults) {}

  // Media types of the built-in camera: the compressed one has the higher rate.
  static std::vector<scripted::MediaType> BuiltInTypes();

  void Load() override;
  void Query() override;
  void Release() override { m_blocks.clear(); }
  void Open() override;
  void DeliverFrames(unsigned count) override;
  void Close() override;
  void Unload() override;

  const std::vector<std::string>& Trace() const { return m_trace; }
  const std::vector<FrameFate>& Fates() const { return m_fates; }
  std::vector<std::string> Alive() const;
  PostState After() const;

 private:
  // A capture device.
  struct Device {
    std::string name;
    std::vector<scripted::MediaType> types;
  };
  struct Entry {
    LONG width;
    LONG height;
    unsigned fps;
    bool isMjpg;
  };
  struct Buffer {
    bool hasMemory;
  };
  enum class Binding { kFailed, kNothing, kFilter };

  // --- Writing the trace ---

  // Records a call and returns its answer.
  scripted::Answer Call(const std::string& operation);
  // Record a log line. Without a line number: a message that uses __LINE__.
  void Error(int line, const std::string& function, const std::string& text);
  void Error(const std::string& function, const std::string& text);
  void Warn(int line, const std::string& function, const std::string& text);
  void Note(const std::string& text) { m_trace.push_back(text); }

  // --- The query: ReferenceQuery.cpp ---

  // Finds the built-in camera. False if there is none.
  bool FindCamera();
  std::string ReadDisplayName(const Device& device);
  std::vector<std::string> ReadFixedIds();
  // Enumerates the capture devices up to the camera.
  Binding Bind();
  // False if the camera cannot be read.
  bool ReadCamera();
  void ParseType(const scripted::MediaType& type);
  bool ReadTypes(const Device& device);
  int MakeRecords();
  bool Allocate(std::size_t size);
  std::string DescribeRecords() const;

  // --- The open: ReferenceOpen.cpp ---

  int OpenResult();
  bool MakeEncoder();
  bool MakePool();
  bool BuildGraph();
  bool MakeGraph();
  bool AddCamera();
  bool AddGrabber();
  bool ConfigureGrabber();
  // Finds a pin of a filter whose pins have the given directions.
  bool FindPin(std::span<const PIN_DIRECTION> pinsOfFilter, PIN_DIRECTION wanted);
  bool SetFormat();
  // Records a call whose failure is logged with one line.
  bool Succeeds(const std::string& operation, const std::string& function, const std::string& failure);
  // Text of the subtype that the table selects for the requested size.
  std::string SubTypeNumber() const;

  void StopCapture();

  Faults& m_faults;
  std::vector<std::string> m_trace;
  std::vector<FrameFate> m_fates;

  bool m_isLoaded = false;
  std::optional<std::string> m_cameraName;
  std::vector<Entry> m_table;
  // Read by the query in progress.
  std::vector<unsigned> m_rates;
  std::vector<std::string> m_sizes;
  const Device* m_bound = nullptr;
  // Record blocks that the host owns.
  std::vector<std::size_t> m_blocks;

  bool m_hasEncoder = false;
  bool m_isModulePinned = false;
  unsigned m_poolSize = 0;
  std::deque<Buffer> m_freeBuffers;
  bool m_hasControl = false;
  bool m_hasEvent = false;
  const Device* m_cameraInGraph = nullptr;
  bool m_isGrabberInGraph = false;
  bool m_isOpened = false;
  bool m_isStreaming = false;
  bool m_hasEncodeThread = false;
  // Structures of current media types, which are leaked.
  unsigned m_formatsLeft = 0;

  const std::vector<Device> m_devices = {{"plug-in", {scripted::Mjpg(1920, 1080, 60)}},
                                         {"built-in", BuiltInTypes()}};
};

}  // namespace fault
