// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "command/cli/subcommand.h"
#include "thumbs/store.h"
#include "thumbs/store_size.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Remove stored thumbnails that are no longer used";

constexpr char footer[] =
    "For each PATH, a file or a folder with everything below it, this removes:\n"
    "  - thumbnails whose source is gone\n"
    "  - stale thumbnails, older than their source, whichever program stored them, screenshots of videos and the\n"
    "    thumbnails of other services included. They are no longer used; this command does not regenerate a\n"
    "    screenshot.\n"
    "  - temporary files left behind more than an hour ago; in /tmp and /var/tmp too, but there only your own\n"
    "  - empty folders for thumbnails: those of deleted files at once, others after an hour\n"
    "\n"
    "In a store, it removes these of the sources below each PATH, or of all sources without a PATH. What is not there\n"
    "now, such as a volume that is not mounted, counts as gone.\n"
    "\n"
    "Only files with one of the names under which thumbnails are stored are removed. Symbolic links are not\n"
    "followed. A source whose thumbnail is being made right now is skipped.\n"
    "\n"
    "JSON objects: path, reason, bytes, removed (false with --dry-run), error (null). If something cannot be read or\n"
    "removed: path, error. At the end: files, bytes, dry_run. If a name is not UTF-8, path_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb clean --dry-run /volume1/photo\n"
    "  tavithumb clean /volume1/photo /volume1/video\n"
    "  tavithumb clean --store /var/cache/tavithumb --keep 2G\n"
    "\n"
    "Exit codes: 0 success, 1 something could not be read or removed, 2 bad usage.";

struct Arguments {
  std::vector<std::string> paths;
  RemovalStyle style;
  StoreArguments store;
  std::optional<std::string> keep;
};

void Declare(const Options& options, Arguments* arguments) {
  options.AddOptionalNames("PATH", &arguments->paths, "Files and folders; without any, all of the store");
  options.AddFilter(&arguments->style.filter);
  options.AddFlag("-n,--dry-run", &arguments->style.isDryRun, "Print what would be removed, but remove nothing");
  options.AddFlag("-q,--quiet", &arguments->style.isQuiet, "Print problems only");
  options.AddFlag("--json", &arguments->style.json, "Print one JSON object per line");
  options.AddOptional("--store", "DIR", &arguments->store.folder, "Clean this store too; default: $TAVITHUMB_STORE");
  options.AddOptional("--keep", "SIZE", &arguments->keep,
                      "Then remove the least recently used from the store until it takes SIZE: 500M, 2G or 10%");
}

// Throws std::invalid_argument with a message for people.
RemovalStyle StyleOf(const Arguments& arguments) {
  UseStoreToRead(arguments.store);
  if (arguments.paths.empty() && StoreFolder().empty()) throw std::invalid_argument("PATH or --store is required");
  if (arguments.keep && StoreFolder().empty()) throw std::invalid_argument("--keep needs --store");
  RemovalStyle style = arguments.style;
  if (arguments.keep) style.keep = ParseStoreSize(*arguments.keep);
  return style;
}

}  // namespace

Subcommand CleanSubcommand(std::function<decltype(Clean)> clean) {
  const auto arguments = std::make_shared<Arguments>();
  const auto run = [arguments, clean = std::move(clean)] {
    return clean(arguments->paths, StyleOf(*arguments)) ? kDone : kSomeFailed;
  };
  return {"clean", description, footer, [arguments](const Options& options) { Declare(options, arguments.get()); },
          run};
}

}  // namespace tavithumb::apps::command
