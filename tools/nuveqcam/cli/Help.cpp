#include "cli/Help.h"

#include <sstream>

#include "cli/CommandLine.h"
#include "cli/Text.h"
#include "cli/Version.h"

namespace nuveqcam {
namespace {

constexpr std::size_t kWidth = 80;
constexpr std::size_t kLabelWidth = 18;
constexpr std::size_t kTextColumn = kLabelWidth + 3;

constexpr const char* kDescription =
    "Shows and records video of this PC's built-in camera. Uses the camera library through its public "
    "interface, like any other host.";

// The text in lines of at most kWidth columns, each but the first indented. Keeps line breaks.
std::string Wrap(const std::string& text, std::size_t indent = 0) {
  const std::string lineBreak = "\n" + std::string(indent, ' ');
  std::string wrapped;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    wrapped += wrapped.empty() ? "" : lineBreak;
    while (line.size() > kWidth - indent) {
      const std::size_t end = line.rfind(' ', kWidth - indent);
      if (end == std::string::npos) {
        break;
      }
      wrapped += line.substr(0, end) + lineBreak;
      line.erase(0, end + 1);
    }
    wrapped += line;
  }
  return wrapped + "\n";
}

std::vector<const CLI::Option*> VisibleOptions(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

// " FILE"; empty for a flag.
std::string ValueName(const CLI::Option& option) {
  return option.get_items_expected_max() == 0 ? "" : " " + option.get_type_name();
}

// "usage: nuveqcam list [--json] [OPTION...]"
std::string UsageLine(const CLI::App& command) {
  const std::string head = "usage: nuveqcam " + command.get_name();
  const std::string lineBreak = "\n" + std::string(head.size(), ' ');
  std::string usage = head;
  std::size_t column = head.size();
  const auto append = [&](const std::string& word) {
    if (column + 1 + word.size() > kWidth) {
      usage += lineBreak;
      column = head.size();
    }
    usage += " " + word;
    column += 1 + word.size();
  };
  for (const CLI::Option* const option : VisibleOptions(command)) {
    const auto& shortNames = option->get_snames();
    append("[" + (shortNames.empty() ? option->get_name() : "-" + shortNames.front()) + ValueName(*option) +
           "]");
  }
  append("[OPTION...]");
  return usage + "\n";
}

std::string OptionLines(const CLI::App& app) {
  std::string lines;
  for (const CLI::Option* const option : VisibleOptions(app)) {
    std::string names = option->get_name(false, true);
    if (const std::size_t comma = names.find(','); comma != std::string::npos) {
      names.insert(comma + 1, " ");
    }
    lines += "  " + PadRight(names + ValueName(*option), kLabelWidth) + " " +
             Wrap(option->get_description(), kTextColumn);
  }
  return lines + "\n";
}

std::string CommandHelp(const CommandDefinition& definition, const CLI::App& app) {
  const std::string notes = definition.notes;
  return UsageLine(app) + "\n" + Wrap(definition.description) + "\n" + OptionLines(app) +
         (notes.empty() ? "" : Wrap(notes) + "\n");
}

std::string ToolHelp(const CommandLine& line) {
  std::string text =
      "usage: nuveqcam [OPTION...] COMMAND [OPTION...]\n\n" + Wrap(kDescription) + "\ncommands:\n";
  for (const CommandDefinition& definition : line.commands) {
    text += "  " + PadRight(definition.name, 10) + "  " + definition.summary + "\n";
  }
  return text + "\n'nuveqcam COMMAND --help' describes a command and its options.\n\n";
}

std::string ExitCodes(const SystemTraits& system) {
  return std::string(
             "exit codes:\n"
             "  0  success\n"
             "  1  unexpected failure, for example a missing camera library\n"
             "  2  invalid arguments") +
         (system.hasSimulatedPc ? ", or a CLIP that cannot be played" : "") +
         "\n"
         "  3  this PC has no built-in camera\n"
         "  4  the camera cannot be opened: in use, permission denied, size not supported\n"
         "  5  the output cannot be written\n"
         "  6  the stream ended early: the camera was disconnected or stopped delivering\n"
         "     frames, or the program was interrupted before the first picture\n"
         "  7  probe: the camera does not deliver what it offers, or does not behave as\n"
         "     documented\n";
}

}  // namespace

std::string HelpText(Command command, const SystemTraits& system) {
  const CommandLine line(system);
  std::string text = ToolHelp(line);
  for (const CommandDefinition& definition : line.commands) {
    if (definition.command == command) {
      text = CommandHelp(definition, line.AppOf(command));
    }
  }
  return text + "options for all commands:\n" + OptionLines(line.tool) + ExitCodes(system);
}

std::string VersionText() { return "nuveqcam " NUVEQ_VERSION "\n" + LibraryVersions(); }

}  // namespace nuveqcam
