// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "command/batch/filter.h"
#include "command/batch/run.h"

namespace tavithumb::apps::command {

struct WatchRequest {
  std::vector<std::string> folders;
  Filter filter;
  Order order;
  std::size_t jobs = 1;  // while nobody else uses the processor; otherwise one
  RunOutput output;
  bool triesFailed = false;  // as RunRequest says
};

// `tavithumb watch`: makes the thumbnails of all files in folders, then those of files that come, and removes those of
// files that go. Returns when a signal stops it, or when none of the folders is there any more.
RunOutcome Watch(const WatchRequest& request);

}  // namespace tavithumb::apps::command
