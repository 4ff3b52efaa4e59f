// The library as a loaded module: when it may be unloaded, and whether the process is ending.
#pragma once

// When UnpinModule drops the pin.
enum class UnpinTiming {
  // Before UnpinModule returns, if the host has the library loaded too: the host's unload then unmaps it at
  // once. Waits for a thread that takes the loader lock, so the caller must not hold it.
  kBeforeReturning,
  // Soon after; waits for nothing. The caller may hold the loader lock.
  kSoon
};

// A pinned module stays mapped even if its host unloads it. The library is pinned while it has a capture
// graph, which has threads and which only a close can take apart. PinModule and UnpinModule are balanced and
// never fail; where a pin cannot be dropped, the module stays mapped for the rest of the process. Both do
// nothing on systems where threads can be joined while a library is being unloaded.
void PinModule();
// If the pin is the last reference, the module is unmapped as soon as the calling thread has left it.
// Therefore the caller returns to the host without calling anything outside the module, exception handling
// included, and no frame further up its stack belongs to the module.
void UnpinModule(UnpinTiming timing);

// True when the process is ending and its other threads are already gone, perhaps with locks held: nothing
// may then be waited for.
bool IsProcessEnding();
