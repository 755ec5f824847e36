// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavithumb/libtavithumb.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "command/cli/subcommand.h"
#include "command/query.h"
#include "thumbs/request.h"
#include "thumbs/sizes.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Print the path of a thumbnail for each FILE";

constexpr char footerStart[] =
    "For each FILE, in order, prints the path of a file that shows it at the requested size: the thumbnail stored\n"
    "next to it, one made now and stored for the next request, or FILE itself if it is small enough.\n"
    "\n"
    "Sizes in pixels: a thumbnail is within them. Those made by --library may be larger: it only halves a JPEG, up to\n"
    "three times, and uses a preview embedded in a photo unchanged.\n";

constexpr char footerEnd[] =
    "  original   FILE itself, if browsers can show it\n"
    "  800x600    a box in pixels; each side 1 to 65535\n"
    "  256        a square box\n"
    "\n"
    "Albumex, Brovix and Cinevo are the appliance's photo album, file browser and video player. Each stores "
    "thumbnails\n"
    "under names of its own, this program under Brovix's.\n"
    "\n"
    "JSON objects: source, answer, output_type (Albumex, Brovix, BrovixVarTmp, Cinevo, Original), mime_type,\n"
    "delete (true: delete the answer after use), made (true: made by this request), milliseconds, error (null).\n"
    "For a file without an answer: source, error. If a name is not UTF-8, source_hex or answer_hex has its bytes.\n"
    "\n"
    "Another program may keep one running with --files-from -, and write a name whenever it needs an answer: each\n"
    "gets one line at once, an empty one if there is no answer. With --json, a line may be an object, such as\n"
    "{\"file\": \"a.jpg\", \"size\": \"small\", \"rotate\": 1}; a name that starts with { needs ./ before it.\n"
    "\n"
    "Examples:\n"
    "  tavithumb get photo.jpg\n"
    "  tavithumb get --size 800x600 --rotate 1 *.jpg\n"
    "  tavithumb get --size small --json -- -strange-name-.heic\n"
    "  find . -name .tavi_ea -prune -o -name '*.jpg' -print0 | tavithumb get -0 --files-from - | xargs -0 ls -l\n"
    "\n"
    "Exit codes: 0 every FILE got an answer, 1 some did not, 2 bad usage.";

struct Arguments {
  std::vector<std::string> files;
  std::optional<std::string> list;
  bool json = false;
  bool nulEnded = false;
  std::string size = "medium";
  std::optional<std::string> quarterTurns;
  bool noBrovix = false;
  bool albumex = false;
  bool avatar = false;
  bool keepAnimation = false;
  bool noConvert = false;
  bool fallbackSmaller = false;
  bool acceptHeic = false;
  std::string quality = std::to_string(Request().quality);
  bool byLibrary = false;
  StoreArguments store;
};

// A line for each size with a name.
std::string Footer() {
  std::string sizes;
  for (std::string size : StoredSizes()) {
    const std::string pixels = std::to_string(SideOf(size));
    size.resize(11, ' ');
    sizes.append("  ").append(size).append(pixels).append(" x ").append(pixels).append("\n");
  }
  return footerStart + sizes + footerEnd;
}

void Declare(const Options& options, Arguments* arguments) {
  options.AddOptionalNames("FILE", &arguments->files, "Photos and videos; after '--', names may start with '-'");
  options.AddDefaulted("-s,--size", "SIZE", &arguments->size, "A name, WIDTHxHEIGHT or SIDE; see below");
  options.AddOptional("--rotate", "QUARTERS", &arguments->quarterTurns,
                      "Rotate clockwise by this number of quarter turns, on top of the orientation");
  options.AddFlag("--avatar", &arguments->avatar, "Crop to fill the box");
  options.AddFlag("--keep-animation", &arguments->keepAnimation, "Keep an animated GIF animated");
  options.AddFlag("--no-convert", &arguments->noConvert,
                  "Use only stored thumbnails and previews embedded in the photo");
  options.AddFlag("--fallback-smaller", &arguments->fallbackSmaller,
                  "If the size is not available, try the smaller ones");
  options.AddFlag("--albumex", &arguments->albumex,
                  "Look first for thumbnails that Albumex, the photo album, has stored");
  options.AddFlag("--no-brovix", &arguments->noBrovix,
                  "Do not look for those of Brovix, the file browser, which 'make' stores too");
  options.AddFlag("--accept-heic", &arguments->acceptHeic,
                  "Accept a HEIC photo itself as the answer, also as the original");
  options.AddDefaulted("--quality", "N", &arguments->quality, qualityHelp);
  options.AddFlag("--library", &arguments->byLibrary, libraryHelp);
  options.AddStore(&arguments->store);
  options.AddFlag("--json", &arguments->json, "Print one JSON object per line");
  options.AddOptional("--files-from", "LIST", &arguments->list,
                      "Read more FILEs, one per line, from LIST, and answer each at once; '-' is standard input");
  options.AddFlag("-0", &arguments->nulEnded, "Paths, and names in LIST, end with a NUL byte instead of a newline");
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

// Throws std::invalid_argument with a message for people.
Request RequestOf(const Arguments& arguments) {
  Request request = {ParseSize(arguments.size), arguments.quarterTurns ? ParseQuarterTurns(*arguments.quarterTurns) : 0,
                     OptionWord(arguments),     arguments.acceptHeic,
                     arguments.byLibrary,       ParseQuality(arguments.quality)};
  CheckSize(request);
  return request;
}

// Throws std::invalid_argument with a message for people.
GetFormat FormatOf(const Arguments& arguments) {
  if (arguments.json && arguments.nulEnded && !arguments.list) {
    throw std::invalid_argument("--json and -0 exclude each other without --files-from");
  }
  if (arguments.json) return GetFormat::kJson;
  return arguments.nulEnded ? GetFormat::kNulEnded : GetFormat::kLines;
}

// Throws std::invalid_argument with a message for people.
std::optional<NameList> ListOf(const Arguments& arguments) {
  if (arguments.files.empty() && !arguments.list) throw std::invalid_argument("FILE or --files-from is required");
  if (!arguments.list) return std::nullopt;
  return NameList(*arguments.list, arguments.nulEnded ? '\0' : '\n');
}

}  // namespace

Subcommand GetSubcommand(std::function<decltype(Get)> get) {
  const auto arguments = std::make_shared<Arguments>();
  const auto run = [arguments, get = std::move(get)] {
    UseStoreOf(arguments->store);
    const GetFormat format = FormatOf(*arguments);
    return get(arguments->files, ListOf(*arguments), RequestOf(*arguments), format) ? kDone : kSomeFailed;
  };
  return {"get", description, Footer(), [arguments](const Options& options) { Declare(options, arguments.get()); },
          run};
}

}  // namespace tavithumb::apps::command
