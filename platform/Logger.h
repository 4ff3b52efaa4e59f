// The host's logger. log4cplus must be built with wide characters, because the library logs wide text.
#pragma once

#include <type_traits>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

static_assert(std::is_same_v<log4cplus::tchar, wchar_t>, "log4cplus must be built with UNICODE");

// Returns the logger of the host's logging setup. platform/default has a default for hosts without one.
// Called for every message, on any thread, until the library is unloaded.
log4cplus::Logger GetLogger();
