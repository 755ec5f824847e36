// SPDX-License-Identifier: GPL-3.0-or-later
#include "core/run.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "core/spawn.h"

namespace tavi {
namespace {

constexpr std::size_t kStackSize = 131072;

struct Order {
  const char* path;
  const char* const* argv;
  int result;
};

bool IsCaught(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

// While it lives, no handler of the caller runs on this thread, nor in a process made from it; nor is it cancelled.
class Undisturbed {
 public:
  Undisturbed() {
    sigset_t caught;
    sigemptyset(&caught);
    for (int number = 1; number <= SIGRTMAX; ++number) {
      if (IsCaught(number)) sigaddset(&caught, number);
    }
    pthread_sigmask(SIG_BLOCK, &caught, &mask_);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState_);
  }
  ~Undisturbed() {
    const int reason = errno;
    pthread_setcancelstate(cancelState_, nullptr);
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    errno = reason;
  }
  Undisturbed(const Undisturbed&) = delete;
  Undisturbed& operator=(const Undisturbed&) = delete;

 private:
  sigset_t mask_;
  int cancelState_ = PTHREAD_CANCEL_ENABLE;
};

// What the process between does, while the thread that made it stands still.
int CarryOut(void* data) {
  struct sigaction usual = {};
  usual.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &usual, nullptr);
  try {
    Order& order = *static_cast<Order*>(data);
    const pid_t child = Spawn(order.path, order.argv, nullptr);
    if (child != -1) order.result = WaitFor(child);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  }
  return 0;
}

// The system then keeps no exit status.
bool CallerIgnoresChildren() {
  struct sigaction action = {};
  return sigaction(SIGCHLD, nullptr, &action) == 0 &&
         (action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0);
}

// A caller that ignores SIGCHLD is told no exit status, and what it ignores is not ours to change. So a process stands
// between it and the program. That process is none of the children that SIGCHLD tells of, hence waited for as ever,
// and has a handling of signals of its own, under which the program's status is kept. It shares all else with the
// caller, so that making it costs no copy of the caller's memory, and descriptors closed by the caller are closed.
int RunAside(const char* path, const char* const* argv) {
  const std::unique_ptr<char[]> stack(new char[kStackSize]);
  Order order{path, argv, -1};
  const Undisturbed undisturbed;
  // No signal is named for its end: that is what keeps it apart from the children whose ends are ignored.
  const pid_t between =
      clone(CarryOut, stack.get() + kStackSize, CLONE_VM | CLONE_VFORK | CLONE_FILES | CLONE_FS, &order);
  if (between == -1) return -1;
  const int reason = errno;
  while (waitpid(between, nullptr, static_cast<int>(__WCLONE)) == -1 && errno == EINTR) {
  }
  errno = reason;
  return order.result;
}

}  // namespace

int Run(const char* path, const char* const* argv) {
  if (CallerIgnoresChildren()) return RunAside(path, argv);
  const pid_t child = Spawn(path, argv, nullptr);
  return child == -1 ? -1 : WaitFor(child);
}

}  // namespace tavi
