// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>
#include <utility>

#include "command/cli/subcommand.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Print what is known about each FILE";

constexpr char footer[] =
    "The table has the kind (image or video), the type, the size in pixels as stored, the length of a video, the\n"
    "orientation (1 to 8, as in Exif) with its clockwise rotation in degrees and its mirroring, HEIC, the largest\n"
    "embedded preview, and from Exif data the colour space (sRGB or AdobeRGB), when the photo was taken, and the\n"
    "camera. Of videos other than MP4, MOV, MKV and WebM, size and length are not known.\n"
    "\n"
    "For a folder, the table has the totals of the files in it and below: how many there are of each kind (image,\n"
    "video or other) and extension, and the disk space that they take.\n"
    "\n"
    "JSON objects: source, kind, mime_type, width, height, orientation, rotation (quarter turns clockwise), mirror,\n"
    "heic, preview (null, or mime_type, width, height), colour_space, taken (YYYY-MM-DDThh:mm:ss by the camera's\n"
    "clock), camera_make, camera_model, lens, exposure (1/60 s, f/1.5, ISO 250, 5.7 mm), place (degrees north and\n"
    "east; each null if not known), error (null). For a video: source, kind, width, height, duration (in seconds),\n"
    "error. For a file that cannot be read: source, error. For a folder: source, totals (kind, type, files, disk in\n"
    "bytes), error. If a name is not UTF-8, source_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb info photo.jpg clip.mp4\n"
    "  tavithumb info .\n"
    "  tavithumb info --json *.heic | jq -r 'select(.width > 4000).source'\n"
    "\n"
    "Exit codes: 0 every FILE could be read, 1 some could not, 2 bad usage.";

struct Arguments {
  std::vector<std::string> files;
  bool json = false;
};

}  // namespace

Subcommand InfoSubcommand(std::function<decltype(Info)> info) {
  const auto arguments = std::make_shared<Arguments>();
  const auto declare = [arguments](const Options& options) {
    options.AddNames("FILE", &arguments->files, "Photos, videos and folders; after '--', names may start with '-'");
    options.AddFlag("--json", &arguments->json, "Print one JSON object per line instead of a table");
  };
  const auto run = [arguments, info = std::move(info)] {
    return info(arguments->files, arguments->json) ? kDone : kSomeFailed;
  };
  return {"info", description, footer, declare, run};
}

}  // namespace tavithumb::apps::command
