// The cameras of a simulated PC as their user drives them, and what is in their frames.
#pragma once

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "simulated/NumberedPicture.h"
#include "simulated/SimulatedPc.h"
#include "support/video/TestPictures.h"

using Bytes = std::vector<std::uint8_t>;

graph::VideoFormat MakeFormat(std::uint32_t fourCc, std::uint32_t width, std::uint32_t height, int rate = 30);
std::string NameOf(const graph::VideoFormat& format);
void PrintTo(const graph::VideoFormat& format, std::ostream* out);  // for the test framework

// A PC whose cameras deliver as fast as their frames are taken.
simulated::SimulatedPcSettings Unpaced();

// Null when the PC has no such camera.
std::unique_ptr<graph::CaptureSource> BuiltInCamera(simulated::SimulatedPc& pc);
std::unique_ptr<graph::CaptureSource> PlugInCamera(simulated::SimulatedPc& pc);

// Sets the format, which has to be one that the camera offers, and starts.
HRESULT StartWith(graph::CaptureSource& source, graph::VideoFormat format);

// No test gets as far as this unless it fails.
graph::CaptureSource::Deadline FarDeadline();

// The bytes of the next frame, which is recycled at once; empty when none comes.
Bytes Take(graph::CaptureSource& source);

// The picture in a frame; empty planes for a frame that is damaged or of another size.
Yuv PictureOf(const Bytes& frame, const graph::VideoFormat& format);
// Of BGRA, top-down.
Yuv PictureOf(const Bytes& bgra, std::uint32_t width, std::uint32_t height);

std::optional<std::uint32_t> NumberIn(const Yuv& picture);
double ColourError(const Yuv& picture);
