// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "command/cli/batch_options.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Make thumbnails for files and folders ahead of time";

constexpr char footer[] =
    "Makes the missing and stale thumbnails of every photo and video among the PATHs and in all folders below them,\n"
    "and leaves those that are up to date. In folders and lists it skips thumbnails and other files; in folders, also\n"
    "links to folders. Those of a video are made of a still, unless a screenshot is stored for it. A file that takes\n"
    "longer than 5 minutes, or crashes the decoder, fails without affecting the others. Two runs over the same files\n"
    "never make a thumbnail twice. A file that failed because of its content is not tried again until it changes.\n"
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
    "not_needed, failed, failed_before (files not tried again), bytes, seconds, expected_seconds (null without\n"
    "--dry-run), interrupted, by_library, reasons, passed_over (kind, files), slowest (source, milliseconds).\n"
    "\n"
    "Examples:\n"
    "  tavithumb make /volume/photos\n"
    "  tavithumb make --sizes small,big --jobs 2 --limit 1000 /volume/photos\n"
    "  tavithumb make --newer-than 2026-11-01 --exclude '*.gif' --exclude old .\n"
    "  find . -newer mark -name '*.jpg' -print0 | tavithumb make -0 --files-from -\n"
    "\n"
    "Exit codes: 0 success, 1 some files failed, 2 bad usage, 130 interrupted.";

struct Arguments {
  std::vector<std::string> paths;
  BatchArguments batch;
  std::optional<std::string> limit;
  std::optional<std::string> list;
  std::optional<std::string> since;
  bool onlyOlder = false;
  bool isDryRun = false;
  bool nulEnded = false;
};

void Declare(const Options& options, Arguments* arguments) {
  options.AddOptionalNames("PATH", &arguments->paths,
                           "Photos, videos and folders; after '--', names may start with '-'");
  DeclareBatch(options, &arguments->batch);
  options.AddFlag("--older", &arguments->onlyOlder,
                  "Only regenerate thumbnails older than their file; make no missing ones");
  options.AddOptional("--limit", "N", &arguments->limit, "Stop after making thumbnails for N files");
  options.AddOptional("--newer-than", "WHEN", &arguments->since,
                      "Leave out files not changed after WHEN: YYYY-MM-DD, 'YYYY-MM-DD HH:MM' or a FILE's time");
  options.AddFlag("-n,--dry-run", &arguments->isDryRun,
                  "Print what would be made, and about how much disk and time it would take");
  options.AddOptional("--files-from", "FILE", &arguments->list,
                      "Read more PATHs, one per line, from FILE; '-' is standard input");
  options.AddFlag("-0", &arguments->nulEnded, "Names in FILE end with a NUL byte instead of a newline");
}

// Throws std::invalid_argument with a message for people.
MakeRequest RequestOf(const Arguments& arguments) {
  if (arguments.paths.empty() && !arguments.list) throw std::invalid_argument("PATH or --files-from is required");
  if (arguments.nulEnded && !arguments.list) throw std::invalid_argument("-0 needs --files-from");
  MakeRequest request;
  request.output = OutputOf(arguments.batch);
  request.order = OrderOf(arguments.batch);
  request.order.onlyOlder = arguments.onlyOlder;
  request.order.isDryRun = arguments.isDryRun;
  request.jobs = JobsOf(arguments.batch);
  if (arguments.limit) request.limit = ParseCount("--limit", *arguments.limit, 1000000000);
  request.filter = FilterOf(arguments.batch);
  if (arguments.since) request.filter.since = ParseMoment(*arguments.since);
  request.names = arguments.paths;
  request.triesFailed = arguments.batch.triesFailed;
  if (arguments.list) request.list.emplace(*arguments.list, arguments.nulEnded ? '\0' : '\n');
  return request;
}

ExitCode CodeOf(RunOutcome outcome) {
  switch (outcome) {
    case RunOutcome::kAllWell:
      return kDone;
    case RunOutcome::kSomeFailed:
      return kSomeFailed;
    case RunOutcome::kInterrupted:
      break;
  }
  return kInterrupted;
}

}  // namespace

Subcommand MakeSubcommand(std::function<decltype(Make)> make) {
  const auto arguments = std::make_shared<Arguments>();
  const auto run = [arguments, make = std::move(make)] {
    UseStoreOf(arguments->batch.store);
    return CodeOf(make(RequestOf(*arguments)));
  };
  return {"make", description, footer, [arguments](const Options& options) { Declare(options, arguments.get()); }, run};
}

}  // namespace tavithumb::apps::command
