// Interfaces of the scripted objects. Outside Windows they declare only methods that the library calls.
#pragma once

#ifdef _WIN32
#include "support/scripted/WholeInterface_windows.h"
#else
namespace scripted {

template <typename Interface>
using Whole = Interface;

}  // namespace scripted
#endif
