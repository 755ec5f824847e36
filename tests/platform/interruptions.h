// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <thread>

namespace tavithumb::test {

inline std::atomic<int> interruptionCount{0};

// While it lives, a signal whose handler does not restart system calls is raised every millisecond.
class Interruptions {
 public:
  Interruptions() {
    interruptionCount = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++interruptionCount; };
    sigaction(SIGALRM, &action, &before_);
    const itimerval often{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &often, nullptr);
  }
  ~Interruptions() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

  // Waits for `count` more of them. For threads other than the one under test.
  static void Await(int count) {
    const int goal = interruptionCount + count;
    while (interruptionCount < goal) std::this_thread::yield();
  }

 private:
  struct sigaction before_;
};

// Blocks the signal of Interruptions in the calling thread, so that the one under test gets it.
inline void BlockInterruptions() {
  sigset_t alarm;
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
}

}  // namespace tavithumb::test
