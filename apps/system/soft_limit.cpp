// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/soft_limit.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
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

SoftLimit::SoftLimit(__rlimit_resource resource, rlim_t maximum) : resource_(resource) {
  getrlimit(resource_, &before_);
  const rlimit lowered = {std::min(before_.rlim_cur, maximum), before_.rlim_max};
  setrlimit(resource_, &lowered);
}

rlim_t ProcessorSecondsUsed() {
  timespec used = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<rlim_t>(used.tv_sec);
}

BoundedData::BoundedData(rlim_t growth) : SoftLimit(RLIMIT_DATA, DataInUse() + growth) {}

BoundedProcessorTime::BoundedProcessorTime(rlim_t seconds) : SoftLimit(RLIMIT_CPU, ProcessorSecondsUsed() + seconds) {}

}  // namespace tavithumb::apps
