// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>

#include "command/cli/subcommand.h"
#include "command/info.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Print what is known about each FILE";

constexpr char footer[] =
    "The table has the kind (image or video), the type, the size in pixels as stored, the orientation (1 to 8, as in\n"
    "Exif) with its clockwise rotation in degrees and its mirroring, HEIC, and the largest embedded preview.\n"
    "\n"
    "JSON objects: source, kind, mime_type, width, height, orientation, rotation (quarter turns clockwise), mirror,\n"
    "heic, preview (null, or mime_type, width, height), error (null). For a video: source, kind, error.\n"
    "For a file that cannot be read: source, error. If a name is not UTF-8, source_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb info photo.jpg clip.mp4\n"
    "  tavithumb info --json *.heic | jq -r 'select(.width > 4000).source'\n"
    "\n"
    "Exit codes: 0 every FILE could be read, 1 some could not, 2 bad usage.";

struct Arguments {
  std::vector<std::string> files;
  bool json = false;
};

}  // namespace

Subcommand InfoSubcommand(CLI::App* app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const line = app->add_subcommand("info", description)->footer(footer);
  AddNames(line, "FILE", "Photos and videos; after '--', names may start with '-'", &arguments->files);
  line->add_flag("--json", arguments->json, "Print one JSON object per line instead of a table");
  return {line, [arguments] { return Info(arguments->files, arguments->json) ? kDone : kSomeFailed; }};
}

}  // namespace tavithumb::apps::command
