// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>
#include <utility>

#include "command/cli/subcommand.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Print what is stored for each SOURCE";

constexpr char footer[] =
    "The table has the consumer that each file is stored for: Albumex, the photo album, or Albumex old, earlier\n"
    "releases of it; Brovix, the file browser, and this program; Cinevo, the video player; avatar; 'temporary' while\n"
    "it is being made or if it was left behind; other if its name is not one of theirs. It also has the\n"
    "size and rotation given by its name, its size in pixels and in bytes, the type of its content, and its state:\n"
    "up to date, stale (older than SOURCE and therefore not used), source is gone, or unknown (SOURCE is not a\n"
    "file that can be examined).\n"
    "\n"
    "For a folder, the table has the totals of all thumbnails stored for what is in it and below: how many there are\n"
    "for each consumer and size, how many of these are stale or have lost their source ('tavithumb clean' removes\n"
    "both), and the disk space that they take.\n"
    "\n"
    "JSON objects: source, entries, error (null). An entry: path, consumer, size (null), rotation (quarter turns\n"
    "clockwise, or null), bytes, picture (null, or mime_type, width, height), state. For a file that cannot be\n"
    "read: source, error. For a folder: source, totals (consumer, size, files, stale, gone, disk in bytes), error.\n"
    "If a name is not UTF-8, source_hex or path_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb list photo.jpg clip.mp4\n"
    "  tavithumb list .\n"
    "  tavithumb list --json *.jpg | jq -r '.entries[] | select(.state == \"stale\").path'\n"
    "\n"
    "Exit codes: 0 every SOURCE could be read, 1 some could not, 2 bad usage.";

struct Arguments {
  std::vector<std::string> sources;
  bool json = false;
  StoreArguments store;
};

}  // namespace

Subcommand ListSubcommand(std::function<decltype(List)> list) {
  const auto arguments = std::make_shared<Arguments>();
  const auto declare = [arguments](const Options& options) {
    options.AddNames("SOURCE", &arguments->sources,
                     "Photos and videos, also deleted ones, and folders; after '--', names may start with '-'");
    options.AddFlag("--json", &arguments->json, "Print one JSON object per line instead of a table");
    options.AddStoreToRead(&arguments->store);
  };
  const auto run = [arguments, list = std::move(list)] {
    UseStoreToRead(arguments->store);
    return list(arguments->sources, arguments->json) ? kDone : kSomeFailed;
  };
  return {"list", description, footer, declare, run};
}

}  // namespace tavithumb::apps::command
