// The commands and options, defined with CLI11.
#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>

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

// The system's commands, in the order of the help.
std::span<const CommandDefinition> CommandDefinitions(const SystemTraits& system);

// The definition of all commands and options. `tool.parse` fills `options`; invalid values throw UsageError.
// Options with an empty group are not shown in the help.
struct CommandLine {
  explicit CommandLine(const SystemTraits& system);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine() = default;

  const CLI::App& AppOf(Command command) const { return *tool.get_subcommand(NameOf(command)); }

  const std::span<const CommandDefinition> commands;
  CLI::App tool;
  Options options;
};

}  // namespace nuveqcam
