// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::proof {

// A file that needs far more resources than its size suggests.
struct Bomb {
  const char* name;
  const char* extension;
  void (*make)(const std::string& path);
  bool isQuick = true;
  // Exiv2 itself would read blocks of the file into memory as a whole: the library has no limit, the programs reject
  // it.
  bool fillsExiv2 = false;
};

const std::vector<Bomb>& Bombs();

}  // namespace tavithumb::proof
