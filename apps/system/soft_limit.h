// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/resource.h>

namespace tavithumb::apps {

// During its lifetime, a soft limit of this process and of what it starts is not above `maximum`.
class SoftLimit {
 public:
  SoftLimit(__rlimit_resource resource, rlim_t maximum);
  ~SoftLimit() { setrlimit(resource_, &before_); }
  SoftLimit(const SoftLimit&) = delete;
  SoftLimit& operator=(const SoftLimit&) = delete;

 private:
  __rlimit_resource resource_;
  rlimit before_ = {};
};

// So that private writable memory can't grow by more than `growth` bytes: allocations beyond that fail. For
// single-threaded programs.
class BoundedData : public SoftLimit {
 public:
  explicit BoundedData(rlim_t growth);
};

// By this process so far.
rlim_t ProcessorSecondsUsed();

// So that `seconds` more of processor time end the process, by SIGXCPU.
class BoundedProcessorTime : public SoftLimit {
 public:
  explicit BoundedProcessorTime(rlim_t seconds);
};

}  // namespace tavithumb::apps
