#include "cli/Arguments.h"

#include <array>
#include <charconv>
#include <string_view>

#include "cli/Text.h"
#include "recording/OutputKind.h"

namespace {

constexpr std::uint32_t kMaxSize = 65535;
constexpr std::uint32_t kMaxFps = 1000;
constexpr std::uint32_t kMaxSeconds = 86400;
constexpr std::uint32_t kMaxSkip = 100000;

// Thrown and caught in this file only.
struct Wrong {
  std::string text;
};

enum class Value { kNone, kRequired, kOptional };

// Which commands an option belongs to, one bit each.
constexpr unsigned kForList = 1;
constexpr unsigned kForRecord = 2;
constexpr unsigned kForSnapshot = 4;
constexpr unsigned kForDoctor = 8;
constexpr unsigned kForAll = 15;

struct Option {
  std::string_view name;       // with its dashes
  std::string_view shortName;  // empty: none
  Value value;
  unsigned commands;
  void (*apply)(Options& options, const std::string& value);
};

std::uint32_t ReadNumber(std::string_view option, std::string_view text, std::uint32_t low,
                         std::uint32_t high) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < low || number > high) {
    throw Wrong{std::string(option) + " wants a whole number from " + std::to_string(low) + " to " +
                std::to_string(high) + ", not '" + SanitizeForTerminal(text) + "'"};
  }
  return number;
}

Size ReadSize(const std::string& text) {
  const std::size_t cross = text.find('x');
  if (cross == std::string::npos) {
    throw Wrong{"--size wants WIDTHxHEIGHT, such as 1280x720, not '" + SanitizeForTerminal(text) + "'"};
  }
  const std::string_view view = text;
  return {ReadNumber("the width of --size", view.substr(0, cross), 1, kMaxSize),
          ReadNumber("the height of --size", view.substr(cross + 1), 1, kMaxSize)};
}

std::string NotEmpty(std::string_view option, const std::string& value) {
  if (value.empty()) {
    throw Wrong{std::string(option) + " wants a file name"};
  }
  return value;
}

void SetSimulated(Options& options, const std::string& value) {
  options.isSimulated = true;
  options.clip = value;
}

constexpr std::array kOptions{
    Option{"--help", "-h", Value::kNone, kForAll, [](Options& o, const std::string&) { o.wantsHelp = true; }},
    Option{"--version", "", Value::kNone, kForAll,
           [](Options& o, const std::string&) { o.wantsVersion = true; }},
    Option{"--simulated", "", Value::kOptional, kForAll, SetSimulated},
    Option{"--verbose", "-v", Value::kNone, kForAll,
           [](Options& o, const std::string&) { o.isVerbose = true; }},
    Option{"--library", "", Value::kRequired, kForAll,
           [](Options& o, const std::string& value) { o.library = NotEmpty("--library", value); }},
    Option{"--json", "", Value::kNone, kForList | kForDoctor,
           [](Options& o, const std::string&) { o.wantsJson = true; }},
    Option{"--output", "-o", Value::kRequired, kForRecord | kForSnapshot,
           [](Options& o, const std::string& value) { o.output = NotEmpty("--output", value); }},
    Option{"--size", "", Value::kRequired, kForRecord | kForSnapshot,
           [](Options& o, const std::string& value) { o.size = ReadSize(value); }},
    Option{"--fps", "", Value::kRequired, kForRecord,
           [](Options& o, const std::string& value) { o.fps = ReadNumber("--fps", value, 1, kMaxFps); }},
    Option{"--seconds", "", Value::kRequired, kForRecord,
           [](Options& o, const std::string& value) {
             o.seconds = ReadNumber("--seconds", value, 0, kMaxSeconds);
           }},
    Option{"--skip", "", Value::kRequired, kForSnapshot,
           [](Options& o, const std::string& value) { o.skip = ReadNumber("--skip", value, 0, kMaxSkip); }},
};

unsigned BitOf(Command command) {
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

Command CommandNamed(std::string_view word) {
  for (const Command command : {Command::kList, Command::kRecord, Command::kSnapshot, Command::kDoctor}) {
    if (word == NameOf(command)) {
      return command;
    }
  }
  return Command::kNone;
}

// One option as it was written: --name, --name=value, -n, -nvalue or -n=value.
struct OptionWord {
  const Option* option = nullptr;
  std::optional<std::string> value;
};

OptionWord ReadOption(const std::string& word) {
  const std::size_t equals = word.find('=');
  for (const Option& option : kOptions) {
    if (word == option.name || word == option.shortName) {
      return {&option, std::nullopt};
    }
    if (equals != std::string::npos && word.compare(0, equals, option.name) == 0) {
      return {&option, word.substr(equals + 1)};
    }
    if (!option.shortName.empty() && option.value == Value::kRequired && !word.starts_with("--") &&
        word.starts_with(option.shortName)) {
      const std::size_t length = option.shortName.size();
      return {&option, word.substr(equals == length ? length + 1 : length)};
    }
  }
  throw Wrong{"unknown option '" + SanitizeForTerminal(word) + "'"};
}

class Parser {
 public:
  Parser(const std::vector<std::string>& arguments, const SystemTraits& system)
      : m_arguments(arguments), m_system(system) {}

  Options Parse() {
    while (m_next < m_arguments.size()) {
      const std::string& word = m_arguments[m_next++];
      if (word.starts_with('-')) {
        TakeOption(word);
      } else {
        TakeCommand(word);
      }
    }
    Check();
    return m_options;
  }

 private:
  void TakeOption(const std::string& word) {
    auto [option, value] = ReadOption(word);
    if (value && option->value == Value::kNone) {
      throw Wrong{std::string(option->name) + " takes no value"};
    }
    if (value && value->empty()) {
      throw Wrong{std::string(option->name) + "= lacks its value"};
    }
    if (!value && option->value == Value::kRequired) {
      if (m_next == m_arguments.size()) {
        throw Wrong{word + " lacks its value"};
      }
      value = m_arguments[m_next++];
    }
    if (!value && option->value == Value::kOptional && NextIsValue()) {
      value = m_arguments[m_next++];
    }
    option->apply(m_options, value.value_or(""));
    m_given.push_back(option);
  }

  // An optional value is the next word, unless that is something else.
  bool NextIsValue() const {
    return m_next < m_arguments.size() && !m_arguments[m_next].empty() &&
           !m_arguments[m_next].starts_with('-') && CommandNamed(m_arguments[m_next]) == Command::kNone;
  }

  void TakeCommand(const std::string& word) {
    const Command command = CommandNamed(word);
    if (m_options.command != Command::kNone) {
      throw Wrong{"'" + SanitizeForTerminal(word) + "' is one word too many"};
    }
    if (command == Command::kNone) {
      throw Wrong{"unknown command '" + SanitizeForTerminal(word) +
                  "'; the commands are list, record, snapshot and doctor"};
    }
    m_options.command = command;
  }

  void Check() {
    const Command command = m_options.command;
    if (m_options.wantsHelp || m_options.wantsVersion) {
      return;
    }
    if (command == Command::kNone) {
      throw Wrong{"a command is missing: list, record, snapshot or doctor"};
    }
    for (const Option* const option : m_given) {
      if ((option->commands & BitOf(command)) == 0) {
        throw Wrong{std::string(option->name) + " is no option of " + NameOf(command)};
      }
    }
    if (m_options.isSimulated && !m_system.hasSimulatedPc) {
      throw Wrong{"there is no simulated PC on this system; leave --simulated out"};
    }
    if (command == Command::kRecord) {
      CheckRecording();
    }
    if (command == Command::kSnapshot) {
      CheckOutput("camera.png", KindOfPicture(OutputOr("camera.png")), "a picture is named .png");
    }
  }

  void CheckRecording() {
    const char* const standard = m_system.recordsMp4 ? "camera.mp4" : "camera.h264";
    const OutputKind kind = KindOfRecording(OutputOr(standard));
    if (kind == OutputKind::kMp4 && !m_system.recordsMp4) {
      throw Wrong{"this build writes .h264, not .mp4; name the recording .h264 or .264"};
    }
    CheckOutput(standard, kind,
                m_system.recordsMp4 ? "a recording is named .mp4, .h264 or .264"
                                    : "a recording is named .h264 or .264");
  }

  std::string OutputOr(const char* standard) const {
    return m_options.output.empty() ? standard : m_options.output;
  }

  void CheckOutput(const char* standard, OutputKind kind, const char* understood) {
    m_options.output = OutputOr(standard);
    if (kind == OutputKind::kUnknown) {
      throw Wrong{"cannot tell from the name '" + SanitizeForTerminal(m_options.output) +
                  "' what to write; " + understood};
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
  } catch (const Wrong& wrong) {
    return UsageError{wrong.text};
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
