// Command-line parsing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "camera/Capabilities.h"
#include "cli/SystemTraits.h"

namespace nuveqcam {

enum class Command { kNone, kList, kRecord, kSnapshot, kDoctor, kProbe, kView };

struct Options {
  Command command = Command::kNone;  // kNone only with wantsHelp or wantsVersion
  bool wantsHelp = false;
  bool wantsVersion = false;

  bool isSimulated = false;
  std::string clip;  // with isSimulated; empty: the simulated camera's generated picture
  bool isVerbose = false;
  std::string library;  // empty: the default library

  bool wantsJson = false;            // list, doctor, probe, view
  std::string output;                // record, snapshot: a file name, or "-" for standard output
  std::optional<Size> size;          // record, snapshot, view
  std::optional<std::uint32_t> fps;  // record, view
  std::uint32_t seconds = 5;         // record; 0: until interrupted
  std::uint32_t skip = 9;            // snapshot: number of pictures to skip
  std::uint32_t probeSeconds = 3;    // probe: for each size
  bool wantsAllRates = false;        // probe
  std::uint32_t port = 0;            // view; 0: any free one
  bool opensBrowser = true;          // view
  bool keepsCameraOpen = false;      // view: also while nobody looks
};

// Human-readable description of an invalid command line. Returned by ParseArguments; thrown within cli/.
struct UsageError {
  std::string text;
};

// Parses the arguments, which do not include the program's name. The last occurrence of a repeated option
// applies. If help or the version is requested, mistakes are ignored. Does not access the system; the only
// exception is std::bad_alloc.
std::variant<Options, UsageError> ParseArguments(const std::vector<std::string>& arguments,
                                                 const SystemTraits& system = ThisSystem());

// "record" etc.; empty for kNone.
std::string NameOf(Command command);

}  // namespace nuveqcam
