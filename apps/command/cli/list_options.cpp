// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>

#include "command/cli/subcommand.h"
#include "command/list.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Print what is stored for each SOURCE";

constexpr char footer[] =
    "The table tells for whom it is stored (Albumex, Albumex old, Brovix, Cinevo, avatar; 'temporary' while it is "
    "being\n"
    "made or when it was left behind; other for what carries none of their names), size and rotation as its name has\n"
    "them, the size in pixels, bytes, the type by its content, and its state: up to date, stale (older than SOURCE, "
    "so\n"
    "that it is not used), source is gone, or unknown (SOURCE is no file that can be looked at).\n"
    "\n"
    "JSON objects: source, entries, error (null). An entry: path, consumer, size (null), rotation (quarter turns\n"
    "clockwise, or null), bytes, picture (null, or mime_type, width, height), state. For a file that cannot be\n"
    "examined: source, error. Where a name is not UTF-8, source_hex or path_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb list photo.jpg clip.mp4\n"
    "  tavithumb list --json *.jpg | jq -r '.entries[] | select(.state == \"stale\").path'\n"
    "\n"
    "Exit codes: 0 every SOURCE could be examined, 1 some could not, 2 bad usage.";

struct Arguments {
  std::vector<std::string> sources;
  bool json = false;
};

}  // namespace

Subcommand ListSubcommand(CLI::App* app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const line = app->add_subcommand("list", description)->footer(footer);
  AddNames(line, "SOURCE", "Photos and videos, gone ones too; after '--', names may begin with '-'",
           &arguments->sources);
  line->add_flag("--json", arguments->json, "Print one JSON object a line, not a table");
  return {line, [arguments] { return List(arguments->sources, arguments->json) ? kDone : kSomeFailed; }};
}

}  // namespace tavithumb::apps::command
