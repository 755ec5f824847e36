// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/facts_in_bounds.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <new>

#include "thumbs/error_codes.h"

namespace tavithumb::apps {
namespace {

constexpr rlim_t mostForFacts = rlim_t{48} * 1048576;

// Bytes of private writable memory of this process, which RLIMIT_DATA counts.
rlim_t DataInUse() {
  std::ifstream sizes("/proc/self/statm");
  rlim_t total = 0, resident = 0, shared = 0, text = 0, libraries = 0, pages = 0;
  sizes >> total >> resident >> shared >> text >> libraries >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// During its lifetime, the process's data can't grow by more than `growth` bytes.
class BoundedData {
 public:
  explicit BoundedData(rlim_t growth) {
    getrlimit(RLIMIT_DATA, &before_);
    const rlimit bounded = {std::min(before_.rlim_cur, DataInUse() + growth), before_.rlim_max};
    setrlimit(RLIMIT_DATA, &bounded);
  }
  ~BoundedData() { setrlimit(RLIMIT_DATA, &before_); }
  BoundedData(const BoundedData&) = delete;
  BoundedData& operator=(const BoundedData&) = delete;

 private:
  rlimit before_ = {};
};

}  // namespace

void ReadInBounds(const std::function<void()>& read) {
  const BoundedData bounded(mostForFacts);
  try {
    read();
  } catch (const std::bad_alloc&) {
    throw FactsTooLarge();
  }
}

void ReadFactsOnly(Thumb* job) {
  ThumbInfo facts = job->GetInfo();
  try {
    ReadInBounds([&] { facts.ExtractImgInfo(false); });
  } catch (const Error& error) {
    if (error.Code() != kNoFacts) throw;
  }
  job->SetFacts(facts);
}

}  // namespace tavithumb::apps
