// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/resource.h>

namespace tavithumb::apps {

// During its lifetime, the process's private writable memory can't grow by more than `growth` bytes: allocations beyond
// that fail. For single-threaded programs.
class BoundedData {
 public:
  explicit BoundedData(rlim_t growth);
  ~BoundedData() { setrlimit(RLIMIT_DATA, &before_); }
  BoundedData(const BoundedData&) = delete;
  BoundedData& operator=(const BoundedData&) = delete;

 private:
  rlimit before_ = {};
};

}  // namespace tavithumb::apps
