// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <signal.h>

#include <ctime>

namespace tavi {

// During its lifetime, writing to a broken pipe is an error in this thread and raises no signal. The process's own
// handling of SIGPIPE, and a SIGPIPE that was pending before, stay as they are.
class SigPipeGuard {
 public:
  SigPipeGuard() : wasPending_(IsPending()) {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~SigPipeGuard() {
    const timespec atOnce{};
    if (!wasPending_ && IsPending()) sigtimedwait(&pipe_, nullptr, &atOnce);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SigPipeGuard(const SigPipeGuard&) = delete;
  SigPipeGuard& operator=(const SigPipeGuard&) = delete;

 private:
  static bool IsPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  }

  bool wasPending_;
  sigset_t pipe_;
  sigset_t before_;
};

}  // namespace tavi
