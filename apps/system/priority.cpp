// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/priority.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

namespace tavithumb::apps {
namespace {

// The C library does not declare them, and the kernel's header is not always valid C++.
constexpr int oneProcess = 1;
constexpr int idleClass = 3 << 13;

constexpr int lowestNiceness = 19;

constexpr timespec yieldInterval = {0, 1'000'000};

void Yield(int) {
  sched_yield();
}

void YieldOn(int signal) {
  struct sigaction action = {};
  action.sa_handler = Yield;
  action.sa_flags = SA_RESTART;
  sigaction(signal, &action, nullptr);
}

}  // namespace

// The niceness is for those who look at the use of the processor: the system counts this process apart then.
void RunWhenIdle() {
  static_cast<void>(setpriority(PRIO_PROCESS, 0, lowestNiceness));
  const sched_param none = {};
  sched_setscheduler(0, SCHED_IDLE, &none);
  syscall(SYS_ioprio_set, oneProcess, 0, idleClass);
}

// The action stays: a last signal may still be on its way when the timer is gone.
FrequentYields::FrequentYields() {
  YieldOn(SIGVTALRM);
  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGVTALRM;
  timer_t timer = {};
  if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) return;
  timer_ = timer;
  const itimerspec repeated = {yieldInterval, yieldInterval};
  timer_settime(timer, 0, &repeated, nullptr);
}

FrequentYields::~FrequentYields() {
  if (timer_) timer_delete(*timer_);
}

}  // namespace tavithumb::apps
