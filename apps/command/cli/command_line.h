// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "command/cli/subcommand.h"

namespace tavithumb::apps::command {

// A command line that can't be run. The message says where to read more.
struct UsageError : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

// Runs the one of the subcommands that `arguments`, without the program's name, ask for, or prints help or the version.
// Throws UsageError, and whatever the subcommand throws.
ExitCode RunCommandLine(const std::vector<std::string>& arguments, const std::vector<Subcommand>& subcommands);

}  // namespace tavithumb::apps::command
