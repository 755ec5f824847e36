// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "command/cli/subcommand.h"

namespace tavithumb::apps::command {

// An invalid command line. The message names the help to read.
struct UsageError : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

// Runs the subcommand that `arguments` (without the program's name) select, or prints help or the version. Throws
// UsageError, and any exception of the subcommand.
ExitCode RunCommandLine(const std::vector<std::string>& arguments, const std::vector<Subcommand>& subcommands);

}  // namespace tavithumb::apps::command
