// How a program that runs and measures another one exits.
#pragma once

namespace bench {

// As those of a shell, which programs rarely use themselves.
inline constexpr int kExitMeasureFailed = 125;
inline constexpr int kExitNotStarted = 127;

// Returns the exit code in the wait status of a child, or terminates this process by the signal that
// terminated the child, so that the caller sees how the child ended.
int ExitLike(int waitStatus);

}  // namespace bench
