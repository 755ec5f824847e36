// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/cli/batch_options.h"

#include <algorithm>
#include <stdexcept>
#include <thread>
#include <vector>

#include "system/numbers.h"
#include "system/suggestion.h"

namespace tavithumb::apps::command {
namespace {

constexpr std::size_t maxJobs = 256;

// Throws std::invalid_argument with a message for people.
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

std::size_t Cores() {
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, maxJobs);
}

}  // namespace

void DeclareBatch(const Options& options, BatchArguments* arguments) {
  options.AddDefaulted("-s,--sizes", "LIST", &arguments->sizes, "Comma-separated names of sizes");
  options.AddOptional("--jobs", "N", &arguments->jobs,
                      "Files to work on in parallel, 1 to 256; default: the number of cores");
  options.AddFlag("--no-videos", &arguments->leavesVideos, "Skip videos in folders and lists");
  options.AddFilter(&arguments->filter);
  options.AddDefaulted("--quality", "N", &arguments->quality, qualityHelp);
  options.AddFlag("--library", &arguments->byLibrary, libraryHelp);
  options.AddFlag("--retry", &arguments->triesFailed, "Try files again that failed before and have not changed");
  options.AddFlag("--eager", &arguments->isEager,
                  "Compete with other programs for processor and disk; by default it uses what they leave");
  options.AddStore(&arguments->store);
  options.AddFlag("-q,--quiet", &arguments->isQuiet, "Print problems only: neither progress nor the summary");
  options.AddFlag("-v,--verbose", &arguments->isVerbose, "Print a line for each file");
  options.AddFlag("--json", &arguments->json, "Print one JSON object per line");
}

std::size_t ParseCount(const std::string& option, const std::string& text, std::size_t maximum) {
  const std::optional<std::size_t> number = ParseNumber<std::size_t>(text);
  if (number && *number >= 1 && *number <= maximum) return *number;
  throw std::invalid_argument("'" + text + "' is not a valid number for " + option + ": use 1 to " +
                              std::to_string(maximum));
}

Order OrderOf(const BatchArguments& arguments) {
  Order order;
  order.sizes = ParseSizes(arguments.sizes);
  order.byLibrary = arguments.byLibrary;
  order.isEager = arguments.isEager;
  order.quality = ParseQuality(arguments.quality);
  return order;
}

std::size_t JobsOf(const BatchArguments& arguments) {
  return arguments.jobs ? ParseCount("--jobs", *arguments.jobs, maxJobs) : Cores();
}

Filter FilterOf(const BatchArguments& arguments) {
  Filter filter = arguments.filter;
  filter.takesVideos = !arguments.leavesVideos && !arguments.byLibrary;
  return filter;
}

RunOutput OutputOf(const BatchArguments& arguments) {
  if (arguments.isVerbose && (arguments.isQuiet || arguments.json)) {
    throw std::invalid_argument(std::string("--verbose and ") + (arguments.isQuiet ? "--quiet" : "--json") +
                                " exclude each other");
  }
  return {arguments.json, arguments.isQuiet, arguments.isVerbose};
}

}  // namespace tavithumb::apps::command
