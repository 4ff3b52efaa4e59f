// The commands and options, defined with CLI11.
#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>
#include <vector>

#include "cli/Arguments.h"

namespace nuveqcam {

struct CommandDefinition {
  Command command;
  const char* name;
  const char* summary;      // in the list of commands
  const char* description;  // in the command's help
  void (*addOptions)(CLI::App& app, Options& options);
  const char* notes;  // in the command's help, after the options
};

// All commands, in the order of the help.
std::span<const CommandDefinition> CommandDefinitions();

// Parses one command line: the checks of the values throw UsageError. Options without a group are hidden.
struct CommandLine {
  explicit CommandLine(const SystemTraits& system);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine() = default;

  const CLI::App& AppOf(Command command) const { return *tool.get_subcommand(NameOf(command)); }

  CLI::App tool;
  Options options;
  std::vector<std::string> extraWords;  // after the command
};

}  // namespace nuveqcam
