// SPDX-License-Identifier: GPL-3.0-or-later
#include <csignal>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "command/cli/command_line.h"
#include "command/output.h"
#include "system/descriptors.h"
#include "system/text.h"
#include "thumbs/imagemagick_policy.h"

namespace tavithumb::apps::command {
namespace {

// Applies to every tool started from here on: ImageMagick may read files from untrusted users.
void SetPolicy() {
  const std::string named = DefaultPolicyFolder(), folder = FindPolicy(named);
  if (folder.empty()) {
    throw std::runtime_error("'" + Printable(named) +
                             "' contains no policy.xml for ImageMagick; reinstall tavithumb, or set " +
                             "$MAGICK_CONFIGURE_PATH to a folder that does");
  }
  UsePolicy(folder);
}

Subcommand WithPolicy(Subcommand subcommand) {
  subcommand.run = [run = std::move(subcommand.run)] {
    SetPolicy();
    return run();
  };
  return subcommand;
}

// Shells expect this of a program whose output is closed.
int DieOfClosedOutput() {
  static_cast<void>(std::signal(SIGPIPE, SIG_DFL));
  static_cast<void>(std::raise(SIGPIPE));
  return kSomeFailed;  // it is blocked
}

}  // namespace
}  // namespace tavithumb::apps::command

int main(int argc, char** argv) {
  using namespace tavithumb::apps;           // NOLINT(google-build-using-namespace)
  using namespace tavithumb::apps::command;  // NOLINT(google-build-using-namespace)
  OpenStandardDescriptors();
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // a closed pipe is reported as a failed write
  try {
    return RunCommandLine(
        {argv + 1, argv + argc},
        {WithPolicy(GetSubcommand()), InfoSubcommand(), WithPolicy(MakeSubcommand()), WithPolicy(WatchSubcommand()),
         RenderSubcommand(), AddSubcommand(), ListSubcommand(), CleanSubcommand()});
  } catch (const OutputClosed&) {
    return DieOfClosedOutput();
  } catch (const UsageError& error) {
    WriteError(Printable(error.what()));
    return kBadUsage;
  } catch (const std::exception& error) {
    WriteError(error.what());
    return kSomeFailed;
  }
}
