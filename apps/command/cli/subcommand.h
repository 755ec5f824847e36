// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace tavithumb::apps::command {

enum ExitCode { kDone = 0, kSomeFailed = 1, kBadUsage = 2, kInterrupted = 130 };

// One subcommand: its command line, and what to do once that has been parsed. `run` throws std::invalid_argument with
// a sentence for people when the options make no sense together.
struct Subcommand {
  const CLI::App* line;
  std::function<ExitCode()> run;
};

Subcommand GetSubcommand(CLI::App* app);
Subcommand InfoSubcommand(CLI::App* app);
Subcommand MakeSubcommand(CLI::App* app);
Subcommand AddSubcommand(CLI::App* app);
Subcommand ListSubcommand(CLI::App* app);
Subcommand CleanSubcommand(CLI::App* app);

// Any number of names, at least one unless they are made optional, taken as they come.
CLI::Option* AddNames(CLI::App* line, const std::string& label, const std::string& description,
                      std::vector<std::string>* names);

}  // namespace tavithumb::apps::command
