// COM and DirectShow: the system's headers on Windows, declarations of the same names in win32/ elsewhere.
#pragma once

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <dshow.h>
#include <windows.h>

// Newer Windows SDKs lack this header.
#if __has_include(<qedit.h>)
#include <qedit.h>

// Defined in the library strmiids, but not declared in qedit.h.
EXTERN_C const CLSID CLSID_SampleGrabber;
#else
#include "win32/SampleGrabberInterfaces.h"
#endif
#else
#include "win32/WindowsTypes.h"

#include "win32/ComInterfaces.h"
#include "win32/DirectShowInterfaces.h"
#include "win32/MediaTypes.h"
#endif
