// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tavithumb::apps::command {

struct AddStyle {
  std::string size;  // its name; empty for all sizes, made from the thumbnail
  long mtime;        // seconds since the epoch, 0 for the source's
  bool checkType;    // only files of the type that the library makes for the source
};

// A source and a thumbnail of it.
using Pair = std::pair<std::string, std::string>;

// `tavithumb add`: moves existing thumbnails to the paths where lookups find them, and writes each path. True if all
// were moved; the others stay in place.
bool Add(const std::vector<Pair>& pairs, const AddStyle& style);

}  // namespace tavithumb::apps::command
