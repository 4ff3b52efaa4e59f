#include "cli/Arguments.h"

#include <algorithm>
#include <string_view>

#include "cli/CommandLine.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

std::string Quote(std::string_view word) { return "'" + SanitizeForTerminal(word) + "'"; }

// "list, record, snapshot or doctor"
std::string CommandNames(const CommandLine& line, const std::string& conjunction) {
  std::string names;
  for (const CommandDefinition& definition : line.commands) {
    const bool isLast = &definition == &line.commands.back();
    names += names.empty() ? "" : isLast ? " " + conjunction + " " : ", ";
    names += definition.name;
  }
  return names;
}

bool IsCommand(const CommandLine& line, const std::string& word) {
  return std::ranges::any_of(line.commands, [&](const auto& definition) { return word == definition.name; });
}

// An option for all commands or for any command; null if there is none.
const CLI::Option* FindOption(const CommandLine& line, const std::string& name) {
  const CLI::Option* option = line.tool.get_option_no_throw(name);
  for (const CommandDefinition& definition : line.commands) {
    option = option != nullptr ? option : line.AppOf(definition.command).get_option_no_throw(name);
  }
  return option;
}

bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() != 0; }
bool IsValueOptional(const CLI::Option& option) { return option.get_items_expected_min() == 0; }

// All options have a long name. CLI::Option::get_name() is empty for hidden options.
std::string LongName(const CLI::Option& option) { return "--" + option.get_lnames().front(); }

// Converts a command line to the forms that every version of CLI11 parses alike: one command, "--flag",
// "--option=value", and "--option" with the next word for an empty value.
class Splitter {
 public:
  Splitter(const CommandLine& line, const std::vector<std::string>& words)
      : m_line(line), m_next(words.begin()), m_end(words.end()) {
    while (m_next != m_end) {
      AddWord(*m_next++);
    }
  }

  const std::vector<std::string>& Words() const { return m_words; }
  // The first mistake. Words() does not contain words with mistakes.
  const std::optional<UsageError>& Mistake() const { return m_mistake; }

 private:
  void AddWord(const std::string& word) {
    if (word == "--") {
      AddTwoDashes();
    } else if (word.starts_with("--")) {
      AddLongOption(word);
    } else if (word.starts_with('-') && word != "-") {
      AddShortOptions(word);
    } else {
      AddCommand(word);
    }
  }

  void AddTwoDashes() {
    if (!m_hasCommand) {
      Reject("missing command before '--': " + CommandNames(m_line, "or"));
    } else if (m_next != m_end) {
      Reject(Quote(*m_next) + ": unexpected argument");
    }
    m_next = m_end;
  }

  void AddCommand(const std::string& word) {
    if (m_hasCommand) {
      Reject(Quote(word) + ": unexpected argument");
    } else if (!IsCommand(m_line, word)) {
      Reject("unknown command " + Quote(word) + "; the commands are " + CommandNames(m_line, "and"));
    } else {
      m_hasCommand = true;
      m_words.push_back(word);
    }
  }

  void AddLongOption(const std::string& word) {
    const std::size_t equals = word.find('=');
    const CLI::Option* const option = FindOption(m_line, word.substr(0, equals));
    if (option == nullptr) {
      Reject("unknown option " + Quote(word));
    } else if (equals == std::string::npos) {
      AddOption(*option, word);
    } else if (!TakesValue(*option)) {
      Reject(LongName(*option) + " does not take a value");
    } else if (equals + 1 == word.size()) {
      Reject(word + " requires a value");
    } else {
      m_words.push_back(word);
    }
  }

  // One or more options, the last one possibly with its value: "-v", "-oFILE", "-voFILE".
  void AddShortOptions(const std::string& word) {
    for (std::size_t i = 1; i < word.size(); ++i) {
      const CLI::Option* const option = FindOption(m_line, {'-', word[i]});
      if (option == nullptr) {
        Reject("unknown option " + Quote(word));
        return;
      }
      if (TakesValue(*option) && i + 1 < word.size()) {
        AddValue(*option, word.substr(i + 1));
        return;
      }
      AddOption(*option, word);
    }
  }

  // Adds an option whose value is not in its own word.
  void AddOption(const CLI::Option& option, const std::string& word) {
    const bool isLast = m_next == m_end;
    if (!TakesValue(option) || (IsValueOptional(option) && (isLast || !IsOptionalValue(*m_next)))) {
      m_words.push_back(LongName(option));
    } else if (isLast) {
      Reject(word + " requires a value");
    } else if (IsValueOptional(option) && m_next->empty()) {
      Reject(word + " requires a file name");
      ++m_next;
    } else {
      AddValue(option, *m_next++);
    }
  }

  bool IsOptionalValue(const std::string& word) const {
    return (!word.starts_with('-') || word == "-") && !IsCommand(m_line, word);
  }

  void AddValue(const CLI::Option& option, const std::string& value) {
    if (value.empty()) {
      m_words.insert(m_words.end(), {LongName(option), value});
    } else {
      m_words.push_back(LongName(option) + "=" + value);
    }
  }

  void Reject(const std::string& mistake) {
    if (!m_mistake) {
      m_mistake = UsageError{mistake};
    }
  }

  const CommandLine& m_line;
  std::vector<std::string>::const_iterator m_next;
  std::vector<std::string>::const_iterator m_end;
  bool m_hasCommand = false;
  std::vector<std::string> m_words;
  std::optional<UsageError> m_mistake;
};

// Checks the options that CLI11 could not assign: those of another command, or before their command.
void CheckMisplacedOptions(const CommandLine& line) {
  const std::vector<std::string> misplaced = line.tool.remaining();
  if (misplaced.empty()) {
    return;
  }
  const Command command = line.options.command;
  const std::string name = misplaced.front().substr(0, misplaced.front().find('='));
  const bool isValid = line.AppOf(command).get_option_no_throw(name) != nullptr;
  throw UsageError{name + (isValid ? " must follow '" : " is not valid for '") + NameOf(command) + "'"};
}

void Parse(CommandLine& line, const std::vector<std::string>& words) {
  try {
    line.tool.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::ParseError& error) {
    throw UsageError{SanitizeForTerminal(error.what())};
  }
  if (line.options.command == Command::kNone) {
    throw UsageError{"missing command: " + CommandNames(line, "or")};
  }
  CheckMisplacedOptions(line);
}

}  // namespace

std::variant<Options, UsageError> ParseArguments(const std::vector<std::string>& arguments,
                                                 const SystemTraits& system) {
  CommandLine line(system);
  const Splitter splitter(line, arguments);
  std::optional<UsageError> mistake = splitter.Mistake();
  try {
    Parse(line, splitter.Words());
  } catch (const UsageError& error) {
    mistake = mistake ? mistake : error;
  }
  if (mistake && !line.options.wantsHelp && !line.options.wantsVersion) {
    return *mistake;
  }
  return line.options;
}

std::string NameOf(Command command) {
  for (const CommandDefinition& definition : CommandDefinitions({.hasView = true})) {
    if (definition.command == command) {
      return definition.name;
    }
  }
  return {};
}

}  // namespace nuveqcam
