// Runs the parts of the encoder library other than the encoding under an instruction counter: conversion of
// frames and copying of packets.
#include <libyuv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "encoder/I420Converter.h"
#include "encoder/PacketMemory.h"

namespace {

constexpr std::uint32_t kWidth = 640;
constexpr std::uint32_t kHeight = 480;

bool Convert(ColorSpace layout, int frames) {
  VideoFrame frame;
  if (!frame.AllocBuffer(kWidth, kHeight, layout)) {
    return false;
  }
  std::memset(frame.data, 1, frame.size);
  encoder::I420Converter converter(kWidth, kHeight, layout);
  for (int i = 0; i < frames; ++i) {
    converter.Convert(frame.data);
  }
  return true;
}

// Allocates and frees the memory of packets. Only the first packet allocates; the others reuse its block.
bool PassPackets(int packets) {
  constexpr std::uint32_t kBytes = 6400;
  for (int i = 0; i < packets; ++i) {
    AVEncodePacket packet;
    if (!encoder::Reserve(packet, kBytes)) {
      return false;
    }
  }
  return true;
}

bool Run(std::string_view what, int times) {
  if (what == "packet") {
    return PassPackets(times);
  }
  return Convert(what == "yuy2" ? ColorSpace::kYuy2 : ColorSpace::kArgb32, times);
}

}  // namespace

// encoder_library_cost yuy2|argb32|packet TIMES
int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: encoder_library_cost yuy2|argb32|packet TIMES\n", stderr);
    return 2;
  }
  // libyuv selects functions by the processor's features; use those of every current processor.
  libyuv::MaskCpuFlags(libyuv::kCpuHasX86 | libyuv::kCpuHasSSE2 | libyuv::kCpuHasSSSE3);
  return Run(argv[1], std::atoi(argv[2])) ? 0 : 1;
}
