#include "Module.h"

namespace platform {

// On Linux, dlclose and exit run the library's destructors while its threads still run. The destructors stop
// and join them, so no pin is needed.
void PinModule() {}

void UnpinModule(UnpinTiming /*timing*/) {}

bool IsProcessEnding() { return false; }

}  // namespace platform
