#include "Module.h"

// Unloading, and exiting with the library loaded, run its destructors while its thread still lives: they
// stop and join it.
void HoldModule() {}

void LetModuleGo() {}

bool IsProcessEnding() { return false; }
