// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/priority.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>

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

// The signal, or -1 if it does not come within that time.
int AwaitYield(timespec time) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGVTALRM);
  return sigtimedwait(&signals, nullptr, &time);
}

TEST(FrequentYields, ComeAgainAndAgainWhileTheyAreWanted) {
  const auto check = [](int) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGVTALRM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    {
      const FrequentYields yields;
      for (int i = 0; i < 3; ++i) {
        if (AwaitYield({10, 0}) != SIGVTALRM) _exit(1);
      }
    }
    AwaitYield({0, 0});  // one that had come before the end
    if (AwaitYield({0, 20'000'000}) != -1) _exit(2);
  };
  EXPECT_EQ(RunLimited({60, 1000, std::chrono::seconds(60)}, -1, check), 0);
}

TEST(FrequentYields, LeaveSystemCallsAsTheyAre) {
  const auto check = [](int) {
    std::array<int, 2> ends = {};
    if (pipe(ends.data()) != 0) _exit(1);
    const pid_t other = fork();
    if (other == 0) {
      usleep(20000);
      _exit(write(ends[1], "x", 1) == 1 ? 0 : 1);
    }
    const FrequentYields yields;
    char byte = 0;
    if (read(ends[0], &byte, 1) != 1 || byte != 'x') _exit(2);
    if (waitpid(other, nullptr, 0) != other) _exit(3);
  };
  EXPECT_EQ(RunLimited({60, 1000, std::chrono::seconds(60)}, -1, check), 0);
}

}  // namespace
}  // namespace tavithumb::apps
