// SetupAPI and the configuration manager, as far as the library calls them: which USB devices the PC has
// and which of them can be unplugged. The system's own declarations on Windows, this project's elsewhere.
#pragma once

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cfg.h>
#include <cfgmgr32.h>
#include <setupapi.h>

#ifdef _MSC_VER
// Defines the identifier that the next header declares, which Microsoft's libraries need not bring.
#include <initguid.h>
#endif
#include <usbiodef.h>
#else
#include "win32/SetupApiFunctions.h"
#endif
