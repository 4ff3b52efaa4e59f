// Helpers to use the cameras of a simulated PC and to check their frames.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "simulated/NumberedPicture.h"
#include "simulated/SimulatedPc.h"
#include "support/video/TestPictures.h"

namespace graph {

void PrintTo(const VideoFormat& format, std::ostream* out);  // for GoogleTest

}  // namespace graph

namespace simulated_support {

using video::Bytes;
using video::Yuv;

graph::VideoFormat MakeFormat(std::uint32_t fourCc, std::uint32_t width, std::uint32_t height, int rate = 30);
std::string NameOf(const graph::VideoFormat& format);

// Settings of a PC without pacing, and of one whose built-in camera also plays a clip.
simulated::SimulatedPcSettings Unpaced();
simulated::SimulatedPcSettings Playing(const std::filesystem::path& clip);

// Null if the PC has no such camera.
std::unique_ptr<graph::CaptureSource> BuiltInCamera(simulated::SimulatedPc& pc);
std::unique_ptr<graph::CaptureSource> PlugInCamera(simulated::SimulatedPc& pc);

// Sets an offered format and starts the camera.
HRESULT StartWith(graph::CaptureSource& source, graph::VideoFormat format);

// A deadline that only a failing test reaches.
graph::CaptureSource::Deadline FarDeadline();

// Captures a frame, recycles it and returns its bytes; empty if no frame arrives.
Bytes Take(graph::CaptureSource& source);

// The picture of a frame; empty planes if the frame is damaged or has another size.
Yuv PictureOf(const Bytes& frame, const graph::VideoFormat& format);
// bgra: top-down.
Yuv PictureOf(const Bytes& bgra, std::uint32_t width, std::uint32_t height);

std::optional<std::uint32_t> NumberIn(const Yuv& picture);
double ColourError(const Yuv& picture);

}  // namespace simulated_support
