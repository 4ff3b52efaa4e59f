// The fixtures in the registry: COM classes, filters and USB devices.
#pragma once

#include <string>

#include "DirectShow.h"

namespace fixtures {

// The fixtures also implement CLSID_SampleGrabber.
inline constexpr CLSID kBuiltInCameraClass{
    0xD41CC22D, 0x7C0D, 0x4D95, {0x98, 0x86, 0xD6, 0xEE, 0x36, 0x43, 0x32, 0x98}};
inline constexpr CLSID kPlugInCameraClass{
    0x282DE882, 0x8D9E, 0x49E3, {0xA8, 0x0F, 0xDF, 0x81, 0x66, 0xBC, 0xD6, 0xA5}};
inline constexpr CLSID kMjpgDecoderClass{
    0xE761FF38, 0x1DD9, 0x4F9C, {0xA5, 0x48, 0x94, 0x06, 0xF8, 0x42, 0x9B, 0xD3}};

// Registers the classes and the MJPG decoder filter, which do not depend on the PC.
void RegisterClasses();

}  // namespace fixtures
