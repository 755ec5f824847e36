// SPDX-License-Identifier: GPL-3.0-or-later
// The command line: what is asked for, and how it ends.
#include <tavithumb/libtavithumb.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/descriptors.h"
#include "common/names.h"
#include "common/request.h"
#include "get.h"
#include "info.h"
#include "output.h"

namespace tavithumb::apps::command {
namespace {

enum ExitCode { kAllAnswered = 0, kSomeFailed = 1, kBadUsage = 2 };

constexpr char description[] = "Finds or makes thumbnails of photos, camera raw, GIF, HEIF and videos.";

constexpr char footer[] =
    "Exit codes:\n"
    "  0  every file got an answer\n"
    "  1  some did not; a line on standard error says which, why, and what to do\n"
    "  2  bad usage\n"
    "\n"
    "'tavithumb get --help' and 'tavithumb info --help' tell more.";

constexpr char getDescription[] = "Print the path of a thumbnail of each FILE";

constexpr char getFooter[] =
    "For each FILE, in order, this is the path of a file that shows it at the wanted size: the thumbnail stored\n"
    "beside it, one made now and stored for the next time, or FILE itself when it is small enough.\n"
    "\n"
    "Sizes in pixels. A JPEG is only halved, up to three times, and a preview embedded in a photo is taken as it is:\n"
    "their thumbnails may be somewhat larger.\n"
    "  small      120 x 120\n"
    "  medium     360 x 360\n"
    "  big        640 x 640\n"
    "  large      1280 x 1280, from 1638400 pixels on\n"
    "  xlarge     1280 x 1280\n"
    "  original   FILE itself, if a browser can show it\n"
    "  800x600    a box in pixels; each side 1 to 65535\n"
    "  256        a square box\n"
    "\n"
    "JSON objects: source, answer, output_type (Albumex, Brovix, BrovixVarTmp, Cinevo, Original), mime_type,\n"
    "delete (delete the answer after use), made (made by this request, not found), milliseconds, error (null).\n"
    "For a file without an answer: source, error. Where a name is not UTF-8, source_hex or answer_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb get photo.jpg\n"
    "  tavithumb get --size 800x600 --rotate 1 *.jpg\n"
    "  tavithumb get --size small --json -- -strange-name-.heic\n"
    "  find . -name '*.jpg' -print0 | xargs -0 tavithumb get -0 | xargs -0 ls -l\n"
    "\n"
    "Exit codes: 0 every FILE got an answer, 1 some did not, 2 bad usage.";

constexpr char infoDescription[] = "Print what is known of each FILE";

constexpr char infoFooter[] =
    "The table tells the kind (image or video), type, size in pixels as stored, orientation (1 to 8, as in Exif),\n"
    "the rotation in degrees clockwise and the mirror that it means, HEIC, and the largest embedded preview.\n"
    "\n"
    "JSON objects: source, kind, mime_type, width, height, orientation, rotation (quarter turns clockwise), mirror,\n"
    "heic, preview (null, or mime_type, width, height), error (null). For a video: source, kind, error.\n"
    "For a file that cannot be examined: source, error. Where a name is not UTF-8, source_hex has its bytes.\n"
    "\n"
    "Examples:\n"
    "  tavithumb info photo.jpg clip.mp4\n"
    "  tavithumb info --json *.heic | jq -r 'select(.width > 4000).source'\n"
    "\n"
    "Exit codes: 0 every FILE could be examined, 1 some could not, 2 bad usage.";

// The command line as parsed.
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

// Any number of names, at least one. They are taken as they come, since the parser would read "[a,b]" as a list and
// "{}" as none where it fills a vector by itself.
void AddFiles(CLI::App* command, Arguments* arguments) {
  const auto take = [arguments](const CLI::results_t& names) {
    arguments->files = names;
    return true;
  };
  command->add_option("FILE", take, "Photos and videos; after '--', names may begin with '-'")
      ->required()
      ->expected(CLI::detail::expected_max_vector_size, CLI::detail::expected_max_vector_size)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text(" ");
}

CLI::App* AddGet(CLI::App* app, Arguments* arguments) {
  CLI::App* get = app->add_subcommand("get", getDescription)->footer(getFooter);
  AddFiles(get, arguments);
  get->add_option("--size", arguments->size, "A name, WIDTHxHEIGHT or SIDE; see below")
      ->type_name("SIZE")
      ->capture_default_str();
  get->add_option("--rotate", arguments->quarterTurns, "Turn by so many quarters clockwise, besides the orientation")
      ->type_name("QUARTERS");
  get->add_flag("--avatar", arguments->avatar, "Crop to fill the box");
  get->add_flag("--keep-animation", arguments->keepAnimation, "An animated GIF stays one");
  get->add_flag("--no-convert", arguments->noConvert, "Only what is stored, or embedded in the photo as a preview");
  get->add_flag("--fallback-smaller", arguments->fallbackSmaller, "Failing the size, try the smaller ones");
  get->add_flag("--albumex", arguments->albumex, "Look for Albumex thumbnails first");
  get->add_flag("--no-brovix", arguments->noBrovix, "Do not look for Brovix thumbnails");
  get->add_flag("--accept-heic", arguments->acceptHeic, "A HEIC photo may be the answer as it is");
  get->add_flag("--json", arguments->json, "Print one JSON object a line");
  get->add_flag("-0", arguments->nulEnded, "End each path with a NUL byte, not a line end");
  return get;
}

void AddInfo(CLI::App* app, Arguments* arguments) {
  CLI::App* info = app->add_subcommand("info", infoDescription)->footer(infoFooter);
  AddFiles(info, arguments);
  info->add_flag("--json", arguments->json, "Print one JSON object a line, not a table");
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
    throw std::invalid_argument("--albumex needs a size with a name: Albumex stores no others");
  }
  if (request.size.IsBox() && arguments.fallbackSmaller) {
    throw std::invalid_argument("--fallback-smaller needs a size with a name: no other has smaller ones");
  }
  return request;
}

// Throws std::invalid_argument with a sentence for people.
GetFormat FormatOf(const Arguments& arguments) {
  if (arguments.json && arguments.nulEnded) throw std::invalid_argument("--json and -0 exclude each other");
  if (arguments.json) return GetFormat::kJson;
  return arguments.nulEnded ? GetFormat::kNulEnded : GetFormat::kLines;
}

int BadUsage(const std::string& message, const CLI::App& app) {
  const std::string subcommand = app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name() + " ";
  WriteError(Printable(message) + "; see 'tavithumb " + subcommand + "--help'");
  return kBadUsage;
}

int Run(int argc, char** argv) {
  Arguments arguments;
  CLI::App app(description, "tavithumb");
  app.footer(footer)->require_subcommand(1);
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.set_version_flag("--version", "tavithumb " TAVITHUMB_VERSION, "Print the version and exit");
  const CLI::App* get = AddGet(&app, &arguments);
  AddInfo(&app, &arguments);
  try {
    app.parse(argc, argv);
    const bool allAnswered = get->parsed() ? Get(arguments.files, RequestOf(arguments), FormatOf(arguments))
                                           : Info(arguments.files, arguments.json);
    return allAnswered ? kAllAnswered : kSomeFailed;
  } catch (const CLI::CallForHelp&) {
    WriteOut(app.help());
    return kAllAnswered;
  } catch (const CLI::CallForVersion& version) {
    WriteOut(std::string(version.what()) + "\n");
    return kAllAnswered;
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
