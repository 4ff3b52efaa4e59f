#include "cli/Arguments.h"

#include <string_view>

#include "cli/CommandLine.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

std::string Quote(std::string_view word) { return "'" + SanitizeForTerminal(word) + "'"; }

// "list, record, snapshot or doctor"
std::string CommandNames(const std::string& conjunction) {
  const auto definitions = CommandDefinitions();
  std::string names;
  for (const CommandDefinition& definition : definitions) {
    const bool isLast = &definition == &definitions.back();
    names += names.empty() ? "" : isLast ? " " + conjunction + " " : ", ";
    names += definition.name;
  }
  return names;
}

// The name of the option in a word: "--fps" of "--fps=30", "-o" of "-oFILE".
std::string OptionName(const std::string& word) {
  return word.starts_with("--") ? word.substr(0, word.find('=')) : word.substr(0, 2);
}

// An option for all commands or for any command; null if there is none.
const CLI::Option* FindOption(const CommandLine& line, const std::string& name) {
  const CLI::Option* option = line.tool.get_option_no_throw(name);
  for (const CommandDefinition& definition : CommandDefinitions()) {
    option = option != nullptr ? option : line.AppOf(definition.command).get_option_no_throw(name);
  }
  return option;
}

// Rejects words to which CLI11 gives a meaning of its own.
void CheckWords(const CommandLine& line, const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    if (word == "++") {
      // It would end the command.
      throw UsageError{"'++': unexpected argument"};
    }
    if (word.starts_with("--") && word.find('=') == word.size() - 1) {
      // The next word would be the value.
      if (const CLI::Option* const option = FindOption(line, OptionName(word))) {
        throw UsageError{
            word + (option->get_items_expected_max() == 0 ? " does not take a value" : " requires a value")};
      }
    }
  }
}

void CheckUnknownOption(const CommandLine& line, const std::string& word) {
  const std::string name = OptionName(word);
  const CLI::Option* const option = FindOption(line, name);
  if (option == nullptr) {
    throw UsageError{"unknown option " + Quote(word)};
  }
  const Command command = line.options.command;
  if (command != Command::kNone) {
    const bool isValid = line.AppOf(command).get_option_no_throw(name) != nullptr;
    throw UsageError{option->get_name() + (isValid ? " must follow '" : " is not valid for '") +
                     NameOf(command) + "'"};
  }
}

// Checks the words that CLI11 could not assign.
void CheckUnknownWords(const CommandLine& line) {
  const std::vector<std::string> unknown = line.tool.remaining();
  if (unknown.empty()) {
    return;
  }
  const std::string& first = unknown.front();
  if (first == "--") {
    throw UsageError{"missing command before '--': " + CommandNames("or")};
  }
  if (!first.starts_with('-')) {
    throw UsageError{"unknown command " + Quote(first) + "; the commands are " + CommandNames("and")};
  }
  CheckUnknownOption(line, first);
}

void Parse(CommandLine& line, const std::vector<std::string>& words) {
  CheckWords(line, words);
  try {
    line.tool.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::ArgumentMismatch&) {
    // All options take at most one value, so only the last word can lack it.
    throw UsageError{SanitizeForTerminal(words.back()) + " requires a value"};
  } catch (const CLI::ParseError& error) {
    throw UsageError{SanitizeForTerminal(error.what())};
  }
  CheckUnknownWords(line);
  const Options& options = line.options;
  if (options.command == Command::kNone && !options.wantsHelp && !options.wantsVersion) {
    throw UsageError{"missing command: " + CommandNames("or")};
  }
  if (!line.extraWords.empty()) {
    throw UsageError{Quote(line.extraWords.front()) + ": unexpected argument"};
  }
}

}  // namespace

std::variant<Options, UsageError> ParseArguments(const std::vector<std::string>& arguments,
                                                 const SystemTraits& system) {
  CommandLine line(system);
  try {
    Parse(line, arguments);
  } catch (const UsageError& error) {
    return error;
  }
  return line.options;
}

std::string NameOf(Command command) {
  for (const CommandDefinition& definition : CommandDefinitions()) {
    if (definition.command == command) {
      return definition.name;
    }
  }
  return {};
}

}  // namespace nuveqcam
