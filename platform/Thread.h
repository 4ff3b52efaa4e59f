// Scheduling of the library's thread.
#pragma once

namespace platform {

// Names the calling thread and raises its priority slightly if the OS permits and the host has not set a
// priority itself. Failures are ignored. Called once on the encoder thread, before the first frame.
void ConfigureEncoderThread() noexcept;

}  // namespace platform
