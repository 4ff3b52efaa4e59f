// The library as a loaded module: keeping it loaded, and detecting the end of the process.
#pragma once

namespace platform {

// Time at which UnpinModule releases the pin.
enum class UnpinTiming {
  // Before UnpinModule returns, provided that the host still has the library loaded. The host's unload then
  // unmaps the library at once. Waits for a thread that takes the loader lock: the caller must not hold it.
  kBeforeReturning,
  // Soon after UnpinModule has returned. Does not wait; the caller may hold the loader lock.
  kSoon
};

// A pinned module stays mapped even if the host unloads it. The library is pinned while it has a capture
// graph, because the graph has threads and only a close releases it. Calls of PinModule and UnpinModule are
// balanced. Neither reports a failure; if the pin cannot be released, the module stays mapped until the
// process ends. Both do nothing on systems where threads can be joined while a library is being unloaded.
void PinModule();
// If the pin is the last reference, the module is unmapped as soon as the calling thread has left it. The
// caller must therefore return to the host without calling anything outside the module (including exception
// handling), and must be the only function of the module on its stack.
void UnpinModule(UnpinTiming timing);

// True while the process is ending and its other threads have been terminated, possibly with locks held. The
// caller must then not wait for anything.
bool IsProcessEnding();

}  // namespace platform
