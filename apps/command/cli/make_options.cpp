// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "command/cli/subcommand.h"
#include "system/numbers.h"
#include "system/suggestion.h"
#include "system/text.h"
#include "thumbs/sizes.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Make thumbnails for files and folders ahead of time";

constexpr char footer[] =
    "Makes the missing and stale thumbnails of every photo and video among the PATHs and in all folders below them,\n"
    "and leaves those that are up to date. In folders and lists it skips thumbnails and other files; in folders, also\n"
    "links to folders. Those of a video are made of a still, unless a screenshot is stored for it. A file that takes\n"
    "longer than 5 minutes, or crashes the decoder, fails without affecting the others. Two runs over the same files\n"
    "never make a thumbnail twice.\n"
    "\n"
    "Ctrl-C finishes the running files; a second Ctrl-C stops them at once. Run it again to continue from there.\n"
    "\n"
    "A GLOB is compared with the names of files and folders at any depth; one with slashes with as many last "
    "components\n"
    "of the path, one that starts with a slash with the absolute path.\n"
    "\n"
    "Sizes: small (120 pixels), medium (360), big (640), large and xlarge (1280; these two share a thumbnail).\n"
    "\n"
    "JSON objects: source, made, found, not_needed (the source is served unchanged), failed (size, error), bytes,\n"
    "milliseconds, by_library (null, or why the library's tools made them), error (null, or why the whole file\n"
    "failed). If a name is not UTF-8, source_hex has its bytes. At the end: summary (true), files, made, found,\n"
    "not_needed, failed, bytes, seconds, expected_seconds (null without --dry-run), interrupted, by_library, reasons,\n"
    "passed_over (kind, files), slowest (source, milliseconds).\n"
    "\n"
    "Examples:\n"
    "  tavithumb make /volume/photos\n"
    "  tavithumb make --sizes small,big --jobs 2 --limit 1000 /volume/photos\n"
    "  tavithumb make --newer-than 2026-11-01 --exclude '*.gif' --exclude old .\n"
    "  find . -newer mark -name '*.jpg' -print0 | tavithumb make -0 --files-from -\n"
    "\n"
    "Exit codes: 0 success, 1 some files failed, 2 bad usage, 130 interrupted.";

constexpr std::size_t maxJobs = 256;

struct Arguments {
  std::vector<std::string> paths;
  std::string sizes = Join(StoredSizes(), ",");
  std::optional<std::string> jobs;
  std::optional<std::string> limit;
  std::optional<std::string> list;
  std::string quality = std::to_string(Request().quality);
  bool byLibrary = false;
  StoreArguments store;
  Filter filter;
  std::optional<std::string> since;
  bool onlyOlder = false;
  bool isDryRun = false;
  bool leavesVideos = false;
  bool isEager = false;
  bool isQuiet = false;
  bool isVerbose = false;
  bool json = false;
  bool nulEnded = false;
};

void Declare(const Options& options, Arguments* arguments) {
  options.AddOptionalNames("PATH", &arguments->paths,
                           "Photos, videos and folders; after '--', names may start with '-'");
  options.AddDefaulted("-s,--sizes", "LIST", &arguments->sizes, "Comma-separated names of sizes");
  options.AddOptional("--jobs", "N", &arguments->jobs,
                      "Files to work on in parallel, 1 to 256; default: the number of cores");
  options.AddFlag("--older", &arguments->onlyOlder,
                  "Only regenerate thumbnails older than their file; make no missing ones");
  options.AddOptional("--limit", "N", &arguments->limit, "Stop after making thumbnails for N files");
  options.AddFlag("--no-videos", &arguments->leavesVideos, "Skip videos in folders and lists");
  options.AddFilter(&arguments->filter);
  options.AddOptional("--newer-than", "WHEN", &arguments->since,
                      "Leave out files not changed after WHEN: YYYY-MM-DD, 'YYYY-MM-DD HH:MM' or a FILE's time");
  options.AddFlag("-n,--dry-run", &arguments->isDryRun,
                  "Print what would be made, and about how much disk and time it would take");
  options.AddDefaulted("--quality", "N", &arguments->quality, qualityHelp);
  options.AddFlag("--library", &arguments->byLibrary, libraryHelp);
  options.AddFlag("--eager", &arguments->isEager,
                  "Compete with other programs for processor and disk; by default it uses what they leave");
  options.AddStore(&arguments->store);
  options.AddFlag("-q,--quiet", &arguments->isQuiet, "Print problems only: neither progress nor the summary");
  options.AddFlag("-v,--verbose", &arguments->isVerbose, "Print a line for each file");
  options.AddFlag("--json", &arguments->json, "Print one JSON object per line");
  options.AddOptional("--files-from", "FILE", &arguments->list,
                      "Read more PATHs, one per line, from FILE; '-' is standard input");
  options.AddFlag("-0", &arguments->nulEnded, "Names in FILE end with a NUL byte instead of a newline");
}

// Throws std::invalid_argument with a message for people, as the functions below do.
std::vector<std::string> ParseSizes(const std::string& text) {
  std::vector<std::string> sizes;
  for (std::size_t begin = 0; begin <= text.size(); begin += sizes.back().size() + 1) {
    const std::string size = text.substr(begin, text.find(',', begin) - begin);
    if (!IsStoredSize(size)) {
      throw std::invalid_argument("'" + size + "' is not a valid size for --sizes" + Suggestion(size, StoredSizes()) +
                                  ": use " + StoredSizeChoices());
    }
    if (std::find(sizes.begin(), sizes.end(), size) != sizes.end()) {
      throw std::invalid_argument("--sizes names '" + size + "' twice");
    }
    sizes.push_back(size);
  }
  return sizes;
}

std::size_t ParseCount(const std::string& option, const std::string& text, std::size_t maximum) {
  const std::optional<std::size_t> number = ParseNumber<std::size_t>(text);
  if (number && *number >= 1 && *number <= maximum) return *number;
  throw std::invalid_argument("'" + text + "' is not a valid number for " + option + ": use 1 to " +
                              std::to_string(maximum));
}

std::size_t Cores() {
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, maxJobs);
}

MakeRequest RequestOf(const Arguments& arguments) {
  if (arguments.paths.empty() && !arguments.list) throw std::invalid_argument("PATH or --files-from is required");
  if (arguments.nulEnded && !arguments.list) throw std::invalid_argument("-0 needs --files-from");
  if (arguments.isVerbose && (arguments.isQuiet || arguments.json)) {
    throw std::invalid_argument(std::string("--verbose and ") + (arguments.isQuiet ? "--quiet" : "--json") +
                                " exclude each other");
  }
  MakeRequest request;
  request.order = {ParseSizes(arguments.sizes), arguments.onlyOlder, arguments.isDryRun,
                   arguments.byLibrary,         arguments.isEager,   ParseQuality(arguments.quality)};
  request.jobs = arguments.jobs ? ParseCount("--jobs", *arguments.jobs, maxJobs) : Cores();
  if (arguments.limit) request.limit = ParseCount("--limit", *arguments.limit, 1000000000);
  request.filter = arguments.filter;
  if (arguments.since) request.filter.since = ParseMoment(*arguments.since);
  request.names = arguments.paths;
  request.filter.takesVideos = !arguments.leavesVideos && !arguments.byLibrary;
  request.output = {arguments.json, arguments.isQuiet, arguments.isVerbose};
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

Subcommand MakeSubcommand(std::function<decltype(Make)> make) {
  const auto arguments = std::make_shared<Arguments>();
  const auto run = [arguments, make = std::move(make)] {
    UseStoreOf(arguments->store);
    return CodeOf(make(RequestOf(*arguments)));
  };
  return {"make", description, footer, [arguments](const Options& options) { Declare(options, arguments.get()); }, run};
}

}  // namespace tavithumb::apps::command
