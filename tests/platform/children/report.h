// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <cstdlib>

// Where a child writes what it found: the file named by $REPORT, else standard output.
inline std::FILE* OpenReport() {
  const char* path = std::getenv("REPORT");
  return path == nullptr ? stdout : std::fopen(path, "w");
}
