#include "Module.h"

// Unloading the library, and exiting with it loaded, run its destructors while its threads still run: the
// destructors stop and join them.
void PinModule() {}

void UnpinModule(UnpinTiming /*timing*/) {}

bool IsProcessEnding() { return false; }
