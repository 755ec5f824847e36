// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "command/batch/name_source.h"
#include "command/batch/work.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// What is printed beside problems.
struct RunOutput {
  bool json = false;
  bool isQuiet = false;    // neither progress nor a summary for people
  bool isVerbose = false;  // a line for each file
};

struct RunRequest {
  Order order;
  std::size_t jobs = 1;
  std::optional<std::size_t> limit;  // of files with at least one thumbnail made
  bool triesFailed = false;          // also files that failed before and have not changed
  bool makesWay = false;             // one file at a time while other programs use the processor
  bool lacksStillTool = false;       // says so if the source leaves out videos
  bool showsProgress = true;
  RunOutput output;
};

// How a source of names reports what it meets.
struct Reporter {
  std::function<void(const std::string& name, const Problem&)> fail;
  std::function<void(const std::string& message)> say;
};

using OpenSource = std::function<std::unique_ptr<NameSource>(const Reporter&)>;

enum class RunOutcome { kAllWell, kSomeFailed, kInterrupted };

std::string WhyVideosAreLeftOut();

// Makes the thumbnails of all files that a source names, until it has ended or a signal stops the run, and prints what
// came of it. A service manager is told that the run has started, that it is alive and that it stops.
RunOutcome RunBatch(const RunRequest& request, const OpenSource& open);

}  // namespace tavithumb::apps::command
