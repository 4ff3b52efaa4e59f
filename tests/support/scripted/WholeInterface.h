// The interfaces as the scripted objects implement them: the methods that the library calls.
#pragma once

#ifdef _WIN32
#include "support/scripted/WholeInterface_windows.h"
#else
namespace scripted {

// What is declared here is what the library calls.
template <typename Interface>
using Whole = Interface;

}  // namespace scripted
#endif
