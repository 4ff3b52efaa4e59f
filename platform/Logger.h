// The logger of the process. log4cplus is built with wide characters here: wide text is what the library
// writes.
#pragma once

#include <type_traits>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

static_assert(std::is_same_v<log4cplus::tchar, wchar_t>, "log4cplus must be built with UNICODE");

// The host's logger, from the host's logging set-up; a default for hosts without one is in
// platform/defaults. Called for every message, from any thread, until the library is unloaded.
log4cplus::Logger GetLogger();
