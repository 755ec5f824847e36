// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "command/batch/result.h"

namespace tavithumb::apps::command {

// What is wanted of every file.
struct Order {
  std::vector<std::string> sizes;  // by name
  bool onlyOlder = false;          // make anew what is older than its file, nothing that is missing
  bool isDryRun = false;           // make nothing: what would be made counts as made
};

// One thumbnail on its way: names in the EA directory of its source.
struct Making {
  std::string entry;      // its final name
  std::string temporary;  // what the names of all files begin with that are written before
  std::time_t since = 0;
};

// Finds or makes the thumbnails of the file at `path`, an absolute one. Before each that it makes it tells `announce`
// what has come of the file so far.
using Announce = std::function<void(const Result&, const Making&)>;
Result WorkOn(const std::string& path, const Order& order, const Announce& announce);

// Removes what is left of a making whose process and tools have ended before their time.
void RemoveHalfMade(const std::string& path, const Making& making);

}  // namespace tavithumb::apps::command
