// SetupAPI and the configuration manager: the system's headers on Windows, declarations of the same names in
// win32/ elsewhere.
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
// Makes the next header define its GUIDs, which the SDK's libraries may lack.
#include <initguid.h>
#endif
#include <usbiodef.h>
#else
#include "win32/SetupApiFunctions.h"
#endif
