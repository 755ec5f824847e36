// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/bounded_data.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace tavithumb::apps {
namespace {

// Bytes of private writable memory of this process, which RLIMIT_DATA counts.
rlim_t DataInUse() {
  std::ifstream sizes("/proc/self/statm");
  rlim_t total = 0, resident = 0, shared = 0, text = 0, libraries = 0, pages = 0;
  sizes >> total >> resident >> shared >> text >> libraries >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

BoundedData::BoundedData(rlim_t growth) {
  getrlimit(RLIMIT_DATA, &before_);
  const rlimit bounded = {std::min(before_.rlim_cur, DataInUse() + growth), before_.rlim_max};
  setrlimit(RLIMIT_DATA, &bounded);
}

}  // namespace tavithumb::apps
