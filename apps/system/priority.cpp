// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/priority.h"

#include <linux/ioprio.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tavithumb::apps {

void RunWhenIdle() {
  const sched_param none = {};
  sched_setscheduler(0, SCHED_IDLE, &none);
  syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_IDLE, 0));
}

}  // namespace tavithumb::apps
