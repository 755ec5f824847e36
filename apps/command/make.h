// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "command/batch/name_list.h"
#include "command/batch/work.h"

namespace tavithumb::apps::command {

struct MakeRequest {
  std::vector<std::string> names;  // files and folders
  std::optional<NameList> list;    // of further names
  Order order;
  std::size_t jobs = 1;
  bool takesVideos = true;           // those in folders and lists
  std::optional<std::size_t> limit;  // of files with at least one thumbnail made
  bool json = false;
};

enum class MakeOutcome { kAllWell, kSomeFailed, kInterrupted };

// `tavithumb make`: makes thumbnails of files, and of all files in folders, ahead of time.
MakeOutcome Make(MakeRequest request);

}  // namespace tavithumb::apps::command
