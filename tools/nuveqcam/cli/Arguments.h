// The command line, read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "camera/Capabilities.h"
#include "cli/SystemTraits.h"

enum class Command { kNone, kList, kRecord, kSnapshot, kDoctor };

struct Options {
  Command command = Command::kNone;  // kNone only with wantsHelp or wantsVersion
  bool wantsHelp = false;
  bool wantsVersion = false;

  bool isSimulated = false;
  std::string clip;  // with isSimulated; empty: the simulated camera's own picture
  bool isVerbose = false;
  std::string library;  // empty: the one beside the program

  bool wantsJson = false;            // list, doctor
  std::string output;                // record, snapshot: a file name, or "-" for the standard output
  std::optional<Size> size;          // record, snapshot
  std::optional<std::uint32_t> fps;  // record
  std::uint32_t seconds = 5;         // record; 0: until a signal
  std::uint32_t skip = 9;            // snapshot: pictures to let pass
};

// What is wrong with the command line, for people.
struct UsageError {
  std::string text;
};

// Reads the arguments, without the program's name, for a system. Depends on nothing else and never throws but
// for want of memory. An option that is given twice counts as given last.
std::variant<Options, UsageError> ParseArguments(const std::vector<std::string>& arguments,
                                                 const SystemTraits& system = ThisSystem());

// "record" and so on; empty for kNone.
std::string NameOf(Command command);
