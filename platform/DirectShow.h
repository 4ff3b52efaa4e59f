// COM and DirectShow, as far as the library calls them: the system's own declarations on Windows, this
// project's elsewhere, under the same names.
#pragma once

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <dshow.h>
#include <windows.h>

// Newer SDKs of Microsoft's have none.
#if __has_include(<qedit.h>)
#include <qedit.h>

// Defined in strmiids; qedit.h does not declare it.
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
