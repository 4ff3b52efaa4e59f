#include "cli/Arguments.h"

#include <array>
#include <charconv>
#include <string_view>

#include "cli/Text.h"
#include "recording/OutputKind.h"

namespace nuveqcam {
namespace {

constexpr std::uint32_t kMaxSize = 65535;
constexpr std::uint32_t kMaxFps = 1000;
constexpr std::uint32_t kMaxSeconds = 86400;
constexpr std::uint32_t kMaxSkip = 100000;

// Thrown and caught in this file only.
struct ParseError {
  std::string text;
};

enum class ValueKind { kNone, kRequired, kOptional };

// The commands that accept an option, one bit each.
constexpr unsigned kForList = 1;
constexpr unsigned kForRecord = 2;
constexpr unsigned kForSnapshot = 4;
constexpr unsigned kForDoctor = 8;
constexpr unsigned kForAll = 15;

struct Option {
  std::string_view name;       // with dashes
  std::string_view shortName;  // empty: none
  ValueKind value;
  unsigned commands;
  void (*apply)(Options& options, const std::string& value);
};

std::uint32_t ParseNumber(std::string_view option, std::string_view text, std::uint32_t min,
                          std::uint32_t max) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < min || number > max) {
    throw ParseError{std::string(option) + " must be an integer from " + std::to_string(min) + " to " +
                     std::to_string(max) + ", not '" + SanitizeForTerminal(text) + "'"};
  }
  return number;
}

Size ParseSize(const std::string& text) {
  const std::size_t cross = text.find('x');
  if (cross == std::string::npos) {
    throw ParseError{"--size must be WIDTHxHEIGHT, for example 1280x720, not '" + SanitizeForTerminal(text) +
                     "'"};
  }
  const std::string_view view = text;
  return {ParseNumber("the width of --size", view.substr(0, cross), 1, kMaxSize),
          ParseNumber("the height of --size", view.substr(cross + 1), 1, kMaxSize)};
}

std::string RequireFileName(std::string_view option, const std::string& value) {
  if (value.empty()) {
    throw ParseError{std::string(option) + " requires a file name"};
  }
  return value;
}

void SetSimulated(Options& options, const std::string& value) {
  options.isSimulated = true;
  options.clip = value;
}

constexpr std::array kOptions{
    Option{"--help", "-h", ValueKind::kNone, kForAll,
           [](Options& o, const std::string&) { o.wantsHelp = true; }},
    Option{"--version", "", ValueKind::kNone, kForAll,
           [](Options& o, const std::string&) { o.wantsVersion = true; }},
    Option{"--simulated", "", ValueKind::kOptional, kForAll, SetSimulated},
    Option{"--verbose", "-v", ValueKind::kNone, kForAll,
           [](Options& o, const std::string&) { o.isVerbose = true; }},
    Option{"--library", "", ValueKind::kRequired, kForAll,
           [](Options& o, const std::string& value) { o.library = RequireFileName("--library", value); }},
    Option{"--json", "", ValueKind::kNone, kForList | kForDoctor,
           [](Options& o, const std::string&) { o.wantsJson = true; }},
    Option{"--output", "-o", ValueKind::kRequired, kForRecord | kForSnapshot,
           [](Options& o, const std::string& value) { o.output = RequireFileName("--output", value); }},
    Option{"--size", "", ValueKind::kRequired, kForRecord | kForSnapshot,
           [](Options& o, const std::string& value) { o.size = ParseSize(value); }},
    Option{"--fps", "", ValueKind::kRequired, kForRecord,
           [](Options& o, const std::string& value) { o.fps = ParseNumber("--fps", value, 1, kMaxFps); }},
    Option{"--seconds", "", ValueKind::kRequired, kForRecord,
           [](Options& o, const std::string& value) {
             o.seconds = ParseNumber("--seconds", value, 0, kMaxSeconds);
           }},
    Option{"--skip", "", ValueKind::kRequired, kForSnapshot,
           [](Options& o, const std::string& value) { o.skip = ParseNumber("--skip", value, 0, kMaxSkip); }},
};

unsigned CommandBit(Command command) {
  switch (command) {
    case Command::kList:
      return kForList;
    case Command::kRecord:
      return kForRecord;
    case Command::kSnapshot:
      return kForSnapshot;
    case Command::kDoctor:
      return kForDoctor;
    case Command::kNone:
      break;
  }
  return 0;
}

Command FindCommand(std::string_view word) {
  for (const Command command : {Command::kList, Command::kRecord, Command::kSnapshot, Command::kDoctor}) {
    if (word == NameOf(command)) {
      return command;
    }
  }
  return Command::kNone;
}

// An option in any of its forms: --name, --name=value, -n, -nvalue or -n=value.
struct ParsedOption {
  const Option* option = nullptr;
  std::optional<std::string> value;
};

ParsedOption ParseOption(const std::string& word) {
  const std::size_t equals = word.find('=');
  for (const Option& option : kOptions) {
    if (word == option.name || word == option.shortName) {
      return {&option, std::nullopt};
    }
    if (equals != std::string::npos && word.compare(0, equals, option.name) == 0) {
      return {&option, word.substr(equals + 1)};
    }
    if (!option.shortName.empty() && option.value == ValueKind::kRequired && !word.starts_with("--") &&
        word.starts_with(option.shortName)) {
      const std::size_t length = option.shortName.size();
      return {&option, word.substr(equals == length ? length + 1 : length)};
    }
  }
  throw ParseError{"unknown option '" + SanitizeForTerminal(word) + "'"};
}

class Parser {
 public:
  Parser(const std::vector<std::string>& arguments, const SystemTraits& system)
      : m_arguments(arguments), m_system(system) {}

  Options Parse() {
    while (m_next < m_arguments.size()) {
      const std::string& word = m_arguments[m_next++];
      if (word.starts_with('-')) {
        HandleOption(word);
      } else {
        HandleCommand(word);
      }
    }
    Validate();
    return m_options;
  }

 private:
  void HandleOption(const std::string& word) {
    auto [option, value] = ParseOption(word);
    if (value && option->value == ValueKind::kNone) {
      throw ParseError{std::string(option->name) + " does not take a value"};
    }
    if (value && value->empty()) {
      throw ParseError{std::string(option->name) + "= requires a value"};
    }
    if (!value && option->value == ValueKind::kRequired) {
      if (m_next == m_arguments.size()) {
        throw ParseError{word + " requires a value"};
      }
      value = m_arguments[m_next++];
    }
    if (!value && option->value == ValueKind::kOptional && IsNextValue()) {
      value = m_arguments[m_next++];
    }
    option->apply(m_options, value.value_or(""));
    m_given.push_back(option);
  }

  // The next word is an optional value unless it is an option or a command.
  bool IsNextValue() const {
    return m_next < m_arguments.size() && !m_arguments[m_next].empty() &&
           !m_arguments[m_next].starts_with('-') && FindCommand(m_arguments[m_next]) == Command::kNone;
  }

  void HandleCommand(const std::string& word) {
    const Command command = FindCommand(word);
    if (m_options.command != Command::kNone) {
      throw ParseError{"'" + SanitizeForTerminal(word) + "': unexpected argument"};
    }
    if (command == Command::kNone) {
      throw ParseError{"unknown command '" + SanitizeForTerminal(word) +
                       "'; the commands are list, record, snapshot and doctor"};
    }
    m_options.command = command;
  }

  void Validate() {
    const Command command = m_options.command;
    if (m_options.wantsHelp || m_options.wantsVersion) {
      return;
    }
    if (command == Command::kNone) {
      throw ParseError{"missing command: list, record, snapshot or doctor"};
    }
    for (const Option* const option : m_given) {
      if ((option->commands & CommandBit(command)) == 0) {
        throw ParseError{std::string(option->name) + " is not valid for '" + NameOf(command) + "'"};
      }
    }
    if (m_options.isSimulated && !m_system.hasSimulatedPc) {
      throw ParseError{"--simulated is not supported on this system"};
    }
    if (command == Command::kRecord) {
      ValidateRecording();
    }
    if (command == Command::kSnapshot) {
      ValidateOutput("camera.png", KindOfPicture(OutputOr("camera.png")),
                     "the extension of a picture is .png");
    }
  }

  void ValidateRecording() {
    const char* const defaultName = m_system.recordsMp4 ? "camera.mp4" : "camera.h264";
    const OutputKind kind = KindOfRecording(OutputOr(defaultName));
    if (kind == OutputKind::kMp4 && !m_system.recordsMp4) {
      throw ParseError{"this build cannot write .mp4; use .h264 or .264"};
    }
    ValidateOutput(defaultName, kind,
                   m_system.recordsMp4 ? "the extension of a recording is .mp4, .h264 or .264"
                                       : "the extension of a recording is .h264 or .264");
  }

  std::string OutputOr(const char* defaultName) const {
    return m_options.output.empty() ? defaultName : m_options.output;
  }

  void ValidateOutput(const char* defaultName, OutputKind kind, const char* advice) {
    m_options.output = OutputOr(defaultName);
    if (kind == OutputKind::kUnknown) {
      throw ParseError{"unknown output format of '" + SanitizeForTerminal(m_options.output) + "'; " + advice};
    }
  }

  const std::vector<std::string>& m_arguments;
  const SystemTraits& m_system;
  std::size_t m_next = 0;
  Options m_options;
  std::vector<const Option*> m_given;
};

}  // namespace

std::variant<Options, UsageError> ParseArguments(const std::vector<std::string>& arguments,
                                                 const SystemTraits& system) {
  try {
    return Parser(arguments, system).Parse();
  } catch (const ParseError& error) {
    return UsageError{error.text};
  }
}

std::string NameOf(Command command) {
  switch (command) {
    case Command::kList:
      return "list";
    case Command::kRecord:
      return "record";
    case Command::kSnapshot:
      return "snapshot";
    case Command::kDoctor:
      return "doctor";
    case Command::kNone:
      break;
  }
  return {};
}

}  // namespace nuveqcam
