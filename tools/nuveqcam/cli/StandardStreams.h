// The streams that the program was started with.
#pragma once

// While it lives, the standard streams are fit for the tool: what is written to them arrives as it was
// written, and a reader that goes away ("nuveqcam record -o - | head"), or a file that exceeds the process's
// limit, is an error of the write, not the end of the process with the camera open. One, before anything is
// opened.
class StandardStreams {
 public:
  // Throws Failure (kUnexpected).
  StandardStreams();
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;
  // NOLINTNEXTLINE(performance-trivially-destructible): it has work on other systems
  ~StandardStreams();
};

bool IsStandardOutputTerminal();
bool IsStandardErrorTerminal();
