// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#include "command/cli/subcommand.h"
#include "command/make.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Make thumbnails of files and folders ahead of time";

constexpr char footer[] =
    "Photos among the PATHs, and in all folders below them, get the thumbnails that they lack. What is up to date is\n"
    "left alone. In folders and lists, files of other kinds, videos and thumbnails are passed over, links to folders\n"
    "in folders; a video that is a PATH needs nothing, for it is answered from screenshots that are stored for it. A\n"
    "file that takes longer than 5 minutes, or crashes what reads it, fails alone. Another run over the same files\n"
    "makes nothing twice.\n"
    "\n"
    "Ctrl-C finishes the running files; pressed again it ends them at once. Run it again to go on from there.\n"
    "\n"
    "Sizes: small (120 pixels), medium (360), big (640), large and xlarge (1280, which share their thumbnail).\n"
    "\n"
    "JSON objects: source, made, found, not_needed (the source itself serves), failed (size, error), bytes,\n"
    "milliseconds, error (null, or why the file failed as a whole). Where a name is not UTF-8, source_hex has its\n"
    "bytes. At the end: summary (true), files, made, found, not_needed, failed, bytes, seconds, interrupted, reasons.\n"
    "\n"
    "Examples:\n"
    "  tavithumb make /volume/photos\n"
    "  tavithumb make --sizes small,big --jobs 2 --limit 1000 /volume/photos\n"
    "  find . -newer mark -name '*.jpg' -print0 | tavithumb make -0 --files-from -\n"
    "\n"
    "Exit codes: 0 all well, 1 some files failed, 2 bad usage, 130 interrupted.";

constexpr std::size_t mostJobs = 256;

struct Arguments {
  std::vector<std::string> paths;
  std::string sizes = "small,medium,big,large,xlarge";
  std::optional<std::string> jobs;
  std::optional<std::string> limit;
  std::optional<std::string> list;
  bool onlyOlder = false;
  bool isDryRun = false;
  bool json = false;
  bool nulEnded = false;
};

void AddOptions(CLI::App* line, Arguments* arguments) {
  line->add_option("--sizes", arguments->sizes, "Names of sizes, with commas between them")
      ->type_name("LIST")
      ->capture_default_str();
  line->add_option("--jobs", arguments->jobs, "So many at once, 1 to 256; by itself as many as there are cores")
      ->type_name("N");
  line->add_flag("--older", arguments->onlyOlder,
                 "Only make anew what is older than its file, nothing that is missing");
  line->add_option("--limit", arguments->limit, "Stop after something was made for N files")->type_name("N");
  line->add_flag("--dry-run", arguments->isDryRun, "Make nothing, print what would be made");
  line->add_flag("--json", arguments->json, "Print one JSON object a line");
  line->add_option("--files-from", arguments->list, "More PATHs, one a line, from FILE or with '-' standard input")
      ->type_name("FILE");
  line->add_flag("-0", arguments->nulEnded, "Names from FILE end with a NUL byte, not a line end");
}

// Throws std::invalid_argument with a sentence for people, as all below.
std::vector<std::string> ParseSizes(const std::string& text) {
  constexpr std::array known = {"small", "medium", "big", "large", "xlarge"};
  std::vector<std::string> sizes;
  for (std::size_t begin = 0; begin <= text.size(); begin += sizes.back().size() + 1) {
    const std::string size = text.substr(begin, text.find(',', begin) - begin);
    if (std::find(known.begin(), known.end(), size) == known.end()) {
      throw std::invalid_argument("'" + size + "' is no size for --sizes: it takes small, medium, big, large, xlarge");
    }
    if (std::find(sizes.begin(), sizes.end(), size) != sizes.end()) {
      throw std::invalid_argument("--sizes names '" + size + "' twice");
    }
    sizes.push_back(size);
  }
  return sizes;
}

std::size_t ParseCount(const std::string& option, const std::string& text, std::size_t most) {
  std::size_t number = 0;
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, number);
  if (result.ec == std::errc() && result.ptr == end && number >= 1 && number <= most) return number;
  throw std::invalid_argument("'" + text + "' is no number for " + option + ": it takes 1 to " + std::to_string(most));
}

std::size_t Cores() {
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, mostJobs);
}

MakeRequest RequestOf(const Arguments& arguments) {
  if (arguments.paths.empty() && !arguments.list) throw std::invalid_argument("PATH or --files-from is required");
  if (arguments.nulEnded && !arguments.list) throw std::invalid_argument("-0 needs --files-from");
  MakeRequest request;
  request.order = {ParseSizes(arguments.sizes), arguments.onlyOlder, arguments.isDryRun};
  request.jobs = arguments.jobs ? ParseCount("--jobs", *arguments.jobs, mostJobs) : Cores();
  if (arguments.limit) request.limit = ParseCount("--limit", *arguments.limit, 1000000000);
  request.names = arguments.paths;
  request.json = arguments.json;
  if (arguments.list) request.list.emplace(*arguments.list, arguments.nulEnded ? '\0' : '\n');
  return request;
}

ExitCode CodeOf(MakeOutcome outcome) {
  switch (outcome) {
    case MakeOutcome::kAllWell:
      return kDone;
    case MakeOutcome::kSomeFailed:
      return kSomeFailed;
    case MakeOutcome::kInterrupted:
      break;
  }
  return kInterrupted;
}

}  // namespace

Subcommand MakeSubcommand(CLI::App* app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const line = app->add_subcommand("make", description)->footer(footer);
  AddNames(line, "PATH", "Photos and folders; after '--', names may begin with '-'", &arguments->paths)
      ->required(false);
  AddOptions(line, arguments.get());
  return {line, [arguments] { return CodeOf(Make(RequestOf(*arguments))); }};
}

}  // namespace tavithumb::apps::command
