// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>
#include <optional>

namespace tavithumb::apps {

// Has this process and what it starts use only the processor time and the disk that others leave. It stays as it is
// where the system does not allow that.
void RunWhenIdle();

// During its lifetime, this process offers the processor to others every millisecond, by SIGVTALRM. Linux often
// leaves it to a process that runs when idle until the next tick of its clock, up to 10 ms, while others wait: beside a
// batch, every twentieth answer of the web program took several times as long. Interrupted system calls go on, except
// those that sleep or wait for events. One at a time; what this process starts is not affected.
class FrequentYields {
 public:
  FrequentYields();
  ~FrequentYields();
  FrequentYields(const FrequentYields&) = delete;
  FrequentYields& operator=(const FrequentYields&) = delete;

 private:
  std::optional<timer_t> timer_;  // nothing if the system has none left
};

}  // namespace tavithumb::apps
