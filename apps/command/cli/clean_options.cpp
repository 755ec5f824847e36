// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>

#include "command/clean.h"
#include "command/cli/subcommand.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Remove stored thumbnails that serve nothing any more";

constexpr char footer[] =
    "For each PATH, a file or a folder with all that lies in it, these go:\n"
    "  - thumbnails whose source is gone\n"
    "  - stale ones, older than their source, whoever stored them: the screenshots of videos and the thumbnails of "
    "other\n"
    "    services too. They are not used any more; a screenshot is not made anew by this command.\n"
    "  - temporary files that were left behind more than an hour ago; in /tmp and /var/tmp as well, your own\n"
    "  - folders for thumbnails that are empty: those of files that are gone, and others after an hour\n"
    "\n"
    "Only files that carry one of the names under which thumbnails are stored are removed, nothing else. Links are "
    "not\n"
    "followed. A source of which a thumbnail is being made just now is passed over.\n"
    "\n"
    "JSON objects: path, reason, bytes, removed (false with --dry-run), error (null). For what cannot be read or "
    "removed:\n"
    "path, error. At the end: files, bytes, dry_run. Where a name is not UTF-8, path_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb clean --dry-run /volume1/photo\n"
    "  tavithumb clean /volume1/photo /volume1/video\n"
    "\n"
    "Exit codes: 0 all is well, 1 something could not be read or removed, 2 bad usage.";

struct Arguments {
  std::vector<std::string> paths;
  RemovalStyle style;
};

}  // namespace

Subcommand CleanSubcommand(CLI::App* app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const line = app->add_subcommand("clean", description)->footer(footer);
  AddNames(line, "PATH", "Files and folders; after '--', names may begin with '-'", &arguments->paths);
  line->add_flag("--dry-run", arguments->style.isDryRun, "Tell what would be removed, and remove nothing");
  line->add_flag("--json", arguments->style.json, "Print one JSON object a line");
  return {line, [arguments] { return Clean(arguments->paths, arguments->style) ? kDone : kSomeFailed; }};
}

}  // namespace tavithumb::apps::command
