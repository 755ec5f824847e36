// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/priority.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tavithumb::apps {
namespace {

// The C library does not declare them, and the kernel's header is not always valid C++.
constexpr int oneProcess = 1;
constexpr int idleClass = 3 << 13;

}  // namespace

void RunWhenIdle() {
  const sched_param none = {};
  sched_setscheduler(0, SCHED_IDLE, &none);
  syscall(SYS_ioprio_set, oneProcess, 0, idleClass);
}

}  // namespace tavithumb::apps
