// The library as a loaded module: when it may be unloaded, and when the process is past caring.
#pragma once

// Between the two the system does not unload the library, even if its host asks for it. The library holds
// itself like this while it has what may have threads: an encoder, a capture graph, a thread of its own.
// Balanced; never fails. LetModuleGo is called from the library's own code, so what it lets go of ends only
// after it has returned to the host. Both do nothing on systems where unloading stops, joins and releases
// safely.
void HoldModule();
void LetModuleGo();

// True when the process is ending and its other threads are already gone, perhaps with locks held: nothing
// may then be waited for.
bool IsProcessEnding();
