// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "command/batch/result.h"

namespace tavithumb::apps::command {

// The request, the same for every file.
struct Order {
  std::vector<std::string> sizes;  // by name
  bool onlyOlder = false;          // regenerate outdated thumbnails, don't make missing ones
  bool isDryRun = false;           // make nothing; thumbnails that would be made count as made
  bool byLibrary = false;          // as Request says
  bool isEager = false;            // competes with other programs for the processor and the disk
  int quality = 80;
  std::vector<std::string> folders = {};  // where thumbnails may be stored, with everything below
};

// An unfinished thumbnail: names in the EA directory of its source.
struct Making {
  std::string entry;                     // its final name; that of the first, where several are made at once
  std::vector<std::string> temporaries;  // the prefixes of the temporary files written before
  std::time_t since = 0;
};

// Finds or makes the thumbnails of the file at the absolute `path`. Calls `announce` with the result so far before it
// makes each one.
using Announce = std::function<void(const Result&, const Making&)>;
Result WorkOn(const std::string& path, const Order& order, const Announce& announce);

// Removes the files of an unfinished thumbnail, after its process and tools have been killed.
void RemoveHalfMade(const std::string& path, const Making& making);

}  // namespace tavithumb::apps::command
