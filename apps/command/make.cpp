// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/make.h"

#include <tavithumb/util.h>

#include <filesystem>
#include <memory>
#include <utility>

#include "command/batch/walk.h"
#include "system/paths.h"
#include "thumbs/stills.h"

namespace tavithumb::apps::command {
namespace {

// Where the thumbnails of these names are stored. Those in a list may lie anywhere.
std::vector<std::string> FoldersOf(const MakeRequest& request) {
  std::vector<std::string> folders;
  if (request.list) folders.emplace_back("/");
  for (const std::string& name : request.names) {
    const std::string path = AbsolutePath(name);
    std::error_code ignored;
    folders.push_back(std::filesystem::is_directory(path, ignored) ? path : file::Dirname(path));
  }
  return folders;
}

}  // namespace

RunOutcome Make(MakeRequest request) {
  RunRequest run;
  run.order = request.order;
  run.order.folders = FoldersOf(request);
  run.jobs = request.jobs;
  run.limit = request.limit;
  run.triesFailed = request.triesFailed;
  run.output = request.output;
  run.lacksStillTool = request.filter.takesVideos && !IsStillToolInstalled();
  request.filter.takesVideos = request.filter.takesVideos && !run.lacksStillTool;
  return RunBatch(run, [&request](const Reporter& reporter) {
    return std::make_unique<Walk>(std::move(request.names), std::move(request.list), std::move(request.filter),
                                  reporter.fail);
  });
}

}  // namespace tavithumb::apps::command
