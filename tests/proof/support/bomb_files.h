// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::proof {

// A file that asks for far more than it is.
struct Bomb {
  const char* name;
  const char* extension;
  void (*make)(const std::string& path);
  bool isQuick = true;
  // Exiv2 itself would take blocks of the file into memory as a whole: the library has no bound, the programs refuse.
  bool fillsExiv2 = false;
};

const std::vector<Bomb>& Bombs();

}  // namespace tavithumb::proof
