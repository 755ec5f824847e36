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

constexpr char description[] = "Make thumbnails for files and folders ahead of time";

constexpr char footer[] =
    "Makes the missing and stale thumbnails of every photo among the PATHs and in all folders below them, and\n"
    "leaves those that are up to date. In folders and lists it skips videos, thumbnails and other files; in\n"
    "folders, also links to folders. A video that is a PATH needs nothing: the screenshots stored for it are its\n"
    "thumbnails. A file that takes longer than 5 minutes, or crashes the decoder, fails without affecting the\n"
    "others. Two runs over the same files never make a thumbnail twice.\n"
    "\n"
    "Ctrl-C finishes the running files; a second Ctrl-C stops them at once. Run it again to continue from there.\n"
    "\n"
    "Sizes: small (120 pixels), medium (360), big (640), large and xlarge (1280; these two share a thumbnail).\n"
    "\n"
    "JSON objects: source, made, found, not_needed (the source is served unchanged), failed (size, error), bytes,\n"
    "milliseconds, error (null, or why the whole file failed). If a name is not UTF-8, source_hex has its bytes.\n"
    "At the end: summary (true), files, made, found, not_needed, failed, bytes, seconds, interrupted, reasons.\n"
    "\n"
    "Examples:\n"
    "  tavithumb make /volume/photos\n"
    "  tavithumb make --sizes small,big --jobs 2 --limit 1000 /volume/photos\n"
    "  find . -newer mark -name '*.jpg' -print0 | tavithumb make -0 --files-from -\n"
    "\n"
    "Exit codes: 0 success, 1 some files failed, 2 bad usage, 130 interrupted.";

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
  line->add_option("--sizes", arguments->sizes, "Comma-separated names of sizes")
      ->type_name("LIST")
      ->capture_default_str();
  line->add_option("--jobs", arguments->jobs, "Files to work on in parallel, 1 to 256; default: the number of cores")
      ->type_name("N");
  line->add_flag("--older", arguments->onlyOlder,
                 "Only regenerate thumbnails older than their file; make no missing ones");
  line->add_option("--limit", arguments->limit, "Stop after making thumbnails for N files")->type_name("N");
  line->add_flag("--dry-run", arguments->isDryRun, "Print what would be made, but make nothing");
  line->add_flag("--json", arguments->json, "Print one JSON object per line");
  line->add_option("--files-from", arguments->list, "Read more PATHs, one per line, from FILE; '-' is standard input")
      ->type_name("FILE");
  line->add_flag("-0", arguments->nulEnded, "Names in FILE end with a NUL byte instead of a newline");
}

// Throws std::invalid_argument with a sentence for people, as all below.
std::vector<std::string> ParseSizes(const std::string& text) {
  constexpr std::array known = {"small", "medium", "big", "large", "xlarge"};
  std::vector<std::string> sizes;
  for (std::size_t begin = 0; begin <= text.size(); begin += sizes.back().size() + 1) {
    const std::string size = text.substr(begin, text.find(',', begin) - begin);
    if (std::find(known.begin(), known.end(), size) == known.end()) {
      throw std::invalid_argument("'" + size +
                                  "' is not a valid size for --sizes: use small, medium, big, large or xlarge");
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
  throw std::invalid_argument("'" + text + "' is not a valid number for " + option + ": use 1 to " +
                              std::to_string(most));
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
  AddNames(line, "PATH", "Photos and folders; after '--', names may start with '-'", &arguments->paths)
      ->required(false);
  AddOptions(line, arguments.get());
  return {line, [arguments] { return CodeOf(Make(RequestOf(*arguments))); }};
}

}  // namespace tavithumb::apps::command
