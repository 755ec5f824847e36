// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <syslog.h>
#include <unistd.h>

namespace tavithumb::apps {

// During its lifetime, the system log gets no lines of this process, unless that is root's. The library tries to become
// root for each thumbnail that it stores, and logs each refusal; the programs report themselves what failed. For
// programs with one thread.
class QuietLog {
 public:
  // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
  QuietLog() : before_(setlogmask(geteuid() == 0 ? 0 : LOG_MASK(LOG_EMERG))) {}  // 0 changes nothing
  ~QuietLog() { setlogmask(before_); }
  // NOLINTEND(concurrency-mt-unsafe)
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

 private:
  int before_;
};

}  // namespace tavithumb::apps
