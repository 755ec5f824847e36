// SPDX-License-Identifier: GPL-3.0-or-later
// The command: which subcommand is asked for, and how it ends.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <string>

#include "command/cli/subcommand.h"
#include "command/output.h"
#include "system/descriptors.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] =
    "Finds, makes and stores thumbnails of photos, camera raw files, GIFs, HEIF images and videos.";

constexpr char footer[] =
    "Exit codes:\n"
    "  0    success\n"
    "  1    some files failed; a line on standard error says which, why, and what to do\n"
    "  2    bad usage\n"
    "  130  interrupted\n"
    "\n"
    "See 'tavithumb SUBCOMMAND --help' for the details.";

ExitCode BadUsage(const std::string& message, const CLI::App& app) {
  const std::string subcommand = app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name() + " ";
  WriteError(Printable(message) + "; see 'tavithumb " + subcommand + "--help'");
  return kBadUsage;
}

ExitCode Run(int argc, char** argv) {
  CLI::App app(description, "tavithumb");
  app.footer(footer)->require_subcommand(1);
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.set_version_flag("--version", "tavithumb " TAVITHUMB_VERSION, "Print the version and exit");
  const std::array subcommands = {GetSubcommand(&app), InfoSubcommand(&app), MakeSubcommand(&app),
                                  AddSubcommand(&app), ListSubcommand(&app), CleanSubcommand(&app)};
  try {
    app.parse(argc, argv);
    const auto asked = std::find_if(subcommands.begin(), subcommands.end(),
                                    [](const Subcommand& subcommand) { return subcommand.line->parsed(); });
    return asked->run();
  } catch (const CLI::CallForHelp&) {
    WriteOut(app.help());
    return kDone;
  } catch (const CLI::CallForVersion& version) {
    WriteOut(std::string(version.what()) + "\n");
    return kDone;
  } catch (const CLI::ParseError& error) {
    return BadUsage(error.what(), app);
  } catch (const std::invalid_argument& error) {
    return BadUsage(error.what(), app);
  }
}

}  // namespace
}  // namespace tavithumb::apps::command

int main(int argc, char** argv) {
  tavithumb::apps::OpenStandardDescriptors();
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // a reader that is gone is told as a failed write
  try {
    return tavithumb::apps::command::Run(argc, argv);
  } catch (const std::exception& error) {
    tavithumb::apps::command::WriteError(error.what());
    return tavithumb::apps::command::kSomeFailed;
  }
}
