// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "system/clock.h"

namespace tavithumb::apps {

// Whether other programs use the processor: those that do not run with the lowest priority, as RunWhenIdle() has them.
class ProcessorUse {
 public:
  // `read` returns the content of /proc/stat, "" if it can't be read.
  explicit ProcessorUse(std::function<std::string()> read = ReadSystemStatistics, Now now = Clock::now);

  // Whether they took more than a tenth of one processor's time in the last second or longer. True at first, and where
  // the system does not tell. Looks at most once a second.
  bool IsUsedByOthers();
  // When to ask again; noDeadline while nobody else uses it.
  Clock::time_point NextEvent() const { return isUsed_ ? next_ : noDeadline; }

  static std::string ReadSystemStatistics();

 private:
  std::function<std::string()> read_;
  Now now_;
  bool isUsed_ = true;
  std::optional<std::uint64_t> before_;  // the time that others had taken, in ticks
  Clock::time_point last_;
  Clock::time_point next_;
};

}  // namespace tavithumb::apps
