// SPDX-License-Identifier: GPL-3.0-or-later
#include <csignal>
#include <exception>

#include "command/cli/command_line.h"
#include "command/output.h"
#include "system/descriptors.h"
#include "system/text.h"

int main(int argc, char** argv) {
  using namespace tavithumb::apps;           // NOLINT(google-build-using-namespace)
  using namespace tavithumb::apps::command;  // NOLINT(google-build-using-namespace)
  OpenStandardDescriptors();
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // a closed pipe is reported as a failed write
  try {
    return RunCommandLine({argv + 1, argv + argc}, {GetSubcommand(), InfoSubcommand(), MakeSubcommand(),
                                                    AddSubcommand(), ListSubcommand(), CleanSubcommand()});
  } catch (const UsageError& error) {
    WriteError(Printable(error.what()));
    return kBadUsage;
  } catch (const std::exception& error) {
    WriteError(error.what());
    return kSomeFailed;
  }
}
