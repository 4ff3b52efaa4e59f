// The messages between the page and the server of `view`: JSON texts, and the header of a stream's records.
//
// The page, and each other program, uses these paths below the address that is printed:
//
//   GET (empty)         the page; view.js, view.css and icon.svg are its files
//   GET state           the state, as JSON
//   GET time            the clock of the arrival times, in microseconds, as text
//   GET stream          records of packets and states; see RecordHeader
//   GET stream.h264     the packets in Annex B format
//   GET stream.mp4      the packets as fragmented MP4; ends when the picture size changes
//   GET snapshot.png    the latest picture; may wait until the camera is open. 503: there is none
//   GET recording.mp4   the latest recording. 404: there is none
//   POST camera         {"width": W, "height": H, "fps": N} reopens the camera. 202: it is tried, and the
//                       state has the result. 400: not of this form
//   POST record         {"record": true} starts a recording and {"record": false} completes it. 200: the
//                       recording's state. 409: impossible at the moment. 500: it has failed
//
// A POST has the fields "X-Nuveqcam: 1" and "Content-Type: application/json". HEAD works like GET. Errors are
// {"error": "human-readable text"}; a request without the token gets 404 without a body.
//
// The state:
//   camera     phase ("closed", "opening", "open", "failed"), name, error and notice (texts; empty:
//              none), conclusion, advice (list of texts), sizes (list of {width, height}), rates (list of
//              frames per second), width, height, fps (of the request; null before the first one)
//   measured   delivered (frames per second in the last five seconds; null: not known yet), promised (frames
//              per second; null like delivered), findings (list of {finding, text, advice} about the rate:
//              word and texts of `probe`)
//   recording  running, stopped (true: by a request, whose sender downloads it),
//              frames, seconds, bytes, error (empty: none), file (name of the path; null: none)
//   viewers    number of streams that are open
//   skipped    frames that this viewer missed because it was slow
//   version    of the program
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "probe/RunningRate.h"
#include "recording/PacketQueue.h"
#include "view/CameraSession.h"

namespace nuveqcam {

struct RecordingState {
  bool isRunning = false;
  bool isStopped = false;  // by a request; false: it is running or has ended by itself
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
  double seconds = 0;
  std::string error{};   // human-readable; empty: none
  bool hasFile = false;  // it is complete and can be downloaded
};

struct ViewState {
  CameraState camera;
  RunningRate measured;
  RecordingState recording;
  std::size_t viewers = 0;
  std::uint64_t skippedFrames = 0;  // by the viewer that receives the state
};

// The file name of the recording in addresses.
inline constexpr const char* kRecordingName = "recording.mp4";

// JSON objects in ASCII. Invalid UTF-8 in texts becomes U+FFFD.
std::string StateJson(const ViewState& state);
std::string ErrorJson(const std::string& text);
std::string RecordingJson(const RecordingState& recording);
// On one line, for the standard output of `view --json`.
std::string AddressJson(const std::string& address);

struct CameraChange {
  Size size;
  std::uint32_t fps = 0;
};

// The requests that change something. nullopt: not a JSON object with the members, or a number out of range.
// The rate is rounded to whole frames per second. The only exception is std::bad_alloc.
std::optional<CameraChange> ParseCameraChange(std::string_view body);
std::optional<bool> ParseRecordCommand(std::string_view body);

// The clock of the arrival times, in microseconds.
std::uint64_t ToMicroseconds(Clock::time_point time);

enum class RecordKind : std::uint8_t { kPacket = 1, kState = 2 };

// The header of a record, 24 bytes in little-endian order: uint32 length of the payload, uint8 kind, uint8
// flags (1: key frame), uint16 0, uint64 number of the packet (0 for a state), uint64 time in microseconds.
std::vector<std::uint8_t> RecordHeader(RecordKind kind, std::size_t length, bool isKeyFrame,
                                       std::uint64_t number, Clock::time_point time);

}  // namespace nuveqcam
