// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "command/batch/filter.h"
#include "command/batch/run.h"
#include "command/name_list.h"

namespace tavithumb::apps::command {

struct MakeRequest {
  std::vector<std::string> names;  // files and folders
  std::optional<NameList> list;    // of further names
  Filter filter;
  Order order;
  std::size_t jobs = 1;
  std::optional<std::size_t> limit;  // of files with at least one thumbnail made
  RunOutput output;
  bool triesFailed = false;  // as RunRequest says
};

// `tavithumb make`: makes thumbnails of files, and of all files in folders, ahead of time.
RunOutcome Make(MakeRequest request);

}  // namespace tavithumb::apps::command
