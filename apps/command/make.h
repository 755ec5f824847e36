// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "command/batch/filter.h"
#include "command/batch/work.h"
#include "command/name_list.h"

namespace tavithumb::apps::command {

// What is printed beside problems.
struct MakeOutput {
  bool json = false;
  bool isQuiet = false;    // neither progress nor a summary for people
  bool isVerbose = false;  // a line for each file
};

struct MakeRequest {
  std::vector<std::string> names;  // files and folders
  std::optional<NameList> list;    // of further names
  Filter filter;
  Order order;
  std::size_t jobs = 1;
  std::optional<std::size_t> limit;  // of files with at least one thumbnail made
  MakeOutput output;
};

enum class MakeOutcome { kAllWell, kSomeFailed, kInterrupted };

// `tavithumb make`: makes thumbnails of files, and of all files in folders, ahead of time.
MakeOutcome Make(MakeRequest request);

}  // namespace tavithumb::apps::command
