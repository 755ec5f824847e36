// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavithumb/libtavithumb.h>

#include <memory>
#include <stdexcept>

#include "command/cli/subcommand.h"
#include "command/get.h"
#include "thumbs/request.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Print the path of a thumbnail for each FILE";

constexpr char footer[] =
    "For each FILE, in order, prints the path of a file that shows it at the requested size: the thumbnail stored\n"
    "next to it, one made now and stored for the next request, or FILE itself if it is small enough.\n"
    "\n"
    "Sizes in pixels. A JPEG is only halved, up to three times, and a preview embedded in a photo is used unchanged:\n"
    "their thumbnails may be somewhat larger.\n"
    "  small      120 x 120\n"
    "  medium     360 x 360\n"
    "  big        640 x 640\n"
    "  large      1280 x 1280, for pictures of 1638400 pixels or more\n"
    "  xlarge     1280 x 1280\n"
    "  original   FILE itself, if browsers can show it\n"
    "  800x600    a box in pixels; each side 1 to 65535\n"
    "  256        a square box\n"
    "\n"
    "JSON objects: source, answer, output_type (Albumex, Brovix, BrovixVarTmp, Cinevo, Original), mime_type,\n"
    "delete (true: delete the answer after use), made (true: made by this request), milliseconds, error (null).\n"
    "For a file without an answer: source, error. If a name is not UTF-8, source_hex or answer_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb get photo.jpg\n"
    "  tavithumb get --size 800x600 --rotate 1 *.jpg\n"
    "  tavithumb get --size small --json -- -strange-name-.heic\n"
    "  find . -name '*.jpg' -print0 | xargs -0 tavithumb get -0 | xargs -0 ls -l\n"
    "\n"
    "Exit codes: 0 every FILE got an answer, 1 some did not, 2 bad usage.";

struct Arguments {
  std::vector<std::string> files;
  bool json = false;
  bool nulEnded = false;
  std::string size = "medium";
  std::string quarterTurns = "0";
  bool noBrovix = false;
  bool albumex = false;
  bool avatar = false;
  bool keepAnimation = false;
  bool noConvert = false;
  bool fallbackSmaller = false;
  bool acceptHeic = false;
};

void AddOptions(CLI::App* line, Arguments* arguments) {
  line->add_option("--size", arguments->size, "A name, WIDTHxHEIGHT or SIDE; see below")
      ->type_name("SIZE")
      ->capture_default_str();
  line->add_option("--rotate", arguments->quarterTurns,
                   "Rotate clockwise by this number of quarter turns, on top of the orientation")
      ->type_name("QUARTERS");
  line->add_flag("--avatar", arguments->avatar, "Crop to fill the box");
  line->add_flag("--keep-animation", arguments->keepAnimation, "Keep an animated GIF animated");
  line->add_flag("--no-convert", arguments->noConvert, "Use only stored thumbnails and previews embedded in the photo");
  line->add_flag("--fallback-smaller", arguments->fallbackSmaller,
                 "If the size is not available, try the smaller ones");
  line->add_flag("--albumex", arguments->albumex, "Look for Albumex thumbnails first");
  line->add_flag("--no-brovix", arguments->noBrovix, "Do not look for Brovix thumbnails");
  line->add_flag("--accept-heic", arguments->acceptHeic, "Accept a HEIC photo itself as the answer");
  line->add_flag("--json", arguments->json, "Print one JSON object per line");
  line->add_flag("-0", arguments->nulEnded, "End each path with a NUL byte instead of a newline");
}

int OptionWord(const Arguments& arguments) {
  int options = 0;
  if (arguments.albumex) options |= Thumb::OPT_ALBUMEX_EA;
  if (!arguments.noBrovix) options |= Thumb::OPT_BROVIX_EA;
  if (arguments.noConvert) options |= Thumb::OPT_NO_CONVERT;
  if (arguments.keepAnimation) options |= Thumb::OPT_ENABLE_GIF;
  if (arguments.avatar) options |= Thumb::OPT_AVATAR;
  if (arguments.fallbackSmaller) options |= Thumb::OPT_FALLBACK_SMALLER;
  return options;
}

// Throws std::invalid_argument with a sentence for people.
Request RequestOf(const Arguments& arguments) {
  Request request = {ParseSize(arguments.size), ParseQuarterTurns(arguments.quarterTurns), OptionWord(arguments),
                     arguments.acceptHeic};
  if (request.size.IsBox() && arguments.albumex) {
    throw std::invalid_argument("--albumex needs a named size: Albumex stores no others");
  }
  if (request.size.IsBox() && arguments.fallbackSmaller) {
    throw std::invalid_argument("--fallback-smaller needs a named size: other sizes have no smaller ones");
  }
  return request;
}

// Throws std::invalid_argument with a sentence for people.
GetFormat FormatOf(const Arguments& arguments) {
  if (arguments.json && arguments.nulEnded) throw std::invalid_argument("--json and -0 exclude each other");
  if (arguments.json) return GetFormat::kJson;
  return arguments.nulEnded ? GetFormat::kNulEnded : GetFormat::kLines;
}

}  // namespace

Subcommand GetSubcommand(CLI::App* app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const line = app->add_subcommand("get", description)->footer(footer);
  AddNames(line, "FILE", "Photos and videos; after '--', names may start with '-'", &arguments->files);
  AddOptions(line, arguments.get());
  return {line, [arguments] {
            return Get(arguments->files, RequestOf(*arguments), FormatOf(*arguments)) ? kDone : kSomeFailed;
          }};
}

}  // namespace tavithumb::apps::command
