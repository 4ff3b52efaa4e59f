// The course that a run has to take: every platform call, log line and report in order, every result, and
// what is alive afterwards, worked out from what each step of the library is documented to do.
#pragma once

#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "FaultInjection.h"
#include "Scenario.h"
#include "Scenarios.h"

// What becomes of a frame that the graph delivers.
enum class FrameFate {
  kEncoded,  // the encoder thread is through with it
  kQueued,   // nobody takes it
  kLost,     // its buffer has no memory
  kHeldUp,   // it waits for a buffer until the camera is closed
  kRefused   // no graph runs
};

class ReferenceModel final : public Run {
 public:
  explicit ReferenceModel(Faults& faults) : m_faults(faults) {}

  // What the built-in camera offers: the faster of two rates is the compressed one.
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
  // What a capture device is called and offers.
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

  // A call whose answer matters.
  scripted::Answer Call(const std::string& operation);
  // A log line; without a number where the line is the source's own.
  void Error(int line, const std::string& function, const std::string& text);
  void Error(const std::string& function, const std::string& text);
  void Warn(int line, const std::string& function, const std::string& text);
  void Note(const std::string& text) { m_trace.push_back(text); }

  // --- The query: ExpectedQuery.cpp ---

  // Finds the camera that counts; false when there is none.
  bool FindCamera();
  std::string ReadDisplayName(const Device& device);
  std::vector<std::string> ReadFixedIds();
  // Walks the capture devices up to the camera.
  Binding Bind();
  // False when the camera could not be read.
  bool ReadCamera();
  void ParseType(const scripted::MediaType& type);
  bool ReadTypes(const Device& device);
  int MakeRecords();
  bool Allocate(std::size_t size);
  std::string DescribeRecords() const;

  // --- The open: ExpectedOpen.cpp ---

  int OpenResult();
  bool MakeEncoder();
  bool MakePool();
  bool BuildGraph();
  bool MakeGraph();
  bool AddCamera();
  bool AddGrabber();
  bool ConfigureGrabber();
  // On a filter with pins of these directions.
  bool FindPin(std::span<const PIN_DIRECTION> pinsOfFilter, PIN_DIRECTION wanted);
  bool SetFormat();
  // Makes a call whose failure is one line.
  bool Succeeds(const std::string& operation, const std::string& function, const std::string& failure);
  // Of the subtype that the table gives for the size that is asked for.
  std::string SubTypeNumber() const;

  void StopCapture();

  Faults& m_faults;
  std::vector<std::string> m_trace;
  std::vector<FrameFate> m_fates;

  bool m_isLoaded = false;
  std::optional<std::string> m_cameraName;
  std::vector<Entry> m_table;
  // What the query in progress has read.
  std::vector<unsigned> m_rates;
  std::vector<std::string> m_sizes;
  const Device* m_bound = nullptr;
  // What the host holds of queries.
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
  // Structures of current media types, which are never given back.
  unsigned m_formatsLeft = 0;

  const std::vector<Device> m_devices = {{"plug-in", {scripted::Mjpg(1920, 1080, 60)}},
                                         {"built-in", BuiltInTypes()}};
};
