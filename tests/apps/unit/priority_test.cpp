// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/priority.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "system/limited_child.h"

namespace tavithumb::apps {
namespace {

TEST(Priority, IsThatOfAnIdleMachineForTheProcessorAndTheDisk) {
  const auto check = [](int) {
    RunWhenIdle();
    constexpr int oneProcess = 1, idleClass = 3;
    const long disk = syscall(SYS_ioprio_get, oneProcess, 0) >> 13;
    if (sched_getscheduler(0) != SCHED_IDLE || disk != idleClass) _exit(1);
  };
  EXPECT_EQ(RunLimited({60, 1000, std::chrono::seconds(60)}, -1, check), 0);
  EXPECT_NE(sched_getscheduler(0), SCHED_IDLE) << "of this process";
}

}  // namespace
}  // namespace tavithumb::apps
