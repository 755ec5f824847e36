// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/watch.h"

#include <unistd.h>

#include <filesystem>
#include <memory>

#include "command/batch/followed_folders.h"
#include "command/clean.h"
#include "system/paths.h"
#include "thumbs/stills.h"

namespace tavithumb::apps::command {
namespace {

// As the system's watches need them: without links. One that does not exist is kept, so that it is reported.
std::vector<std::string> Resolved(const std::vector<std::string>& names) {
  std::vector<std::string> folders;
  for (const std::string& name : names) {
    std::error_code missing;
    const std::string folder = std::filesystem::canonical(name, missing);
    folders.push_back(missing ? AbsolutePath(name) : folder);
  }
  return folders;
}

std::unique_ptr<NameSource> Follow(const WatchRequest& request, const std::vector<std::string>& folders,
                                   const Reporter& reporter) {
  Filter filter = request.filter;
  if (filter.takesVideos && !IsStillToolInstalled()) {
    reporter.say(WhyVideosAreLeftOut());
    filter.takesVideos = false;
  }
  const auto sayCount = [say = reporter.say, isQuiet = request.output.isQuiet](std::size_t count) {
    if (!isQuiet) say("watching " + std::to_string(count) + (count == 1 ? " folder" : " folders"));
  };
  RemovalStyle style;
  style.json = request.output.json;
  style.isQuiet = !request.output.isVerbose;
  style.filter = filter;
  const auto clean = [style](const std::string& path) { CleanAfter(path, style); };
  return std::make_unique<FollowedFolders>(folders, filter, Followers{reporter.fail, reporter.say, sayCount, clean});
}

}  // namespace

RunOutcome Watch(const WatchRequest& request) {
  const std::vector<std::string> folders = Resolved(request.folders);
  RunRequest run;
  run.order = request.order;
  run.order.folders = folders;
  run.jobs = request.jobs;
  run.makesWay = !request.order.isEager;
  run.showsProgress = isatty(STDERR_FILENO) != 0;
  run.triesFailed = request.triesFailed;
  run.output = request.output;
  return RunBatch(run, [&](const Reporter& reporter) { return Follow(request, folders, reporter); });
}

}  // namespace tavithumb::apps::command
