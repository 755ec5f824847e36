// SPDX-License-Identifier: GPL-3.0-or-later
#include "core/aside.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "common/transfer.h"
#include "core/pipe.h"

namespace tavi {
namespace {

constexpr std::size_t kStackSize = 131072;

bool IsCaught(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

sigset_t CaughtSignals() {
  sigset_t caught;
  sigemptyset(&caught);
  for (int number = 1; number <= SIGRTMAX; ++number) {
    if (IsCaught(number)) sigaddset(&caught, number);
  }
  return caught;
}

sigset_t AllSignals() {
  sigset_t all;
  sigfillset(&all);
  return all;
}

// During its lifetime, these signals are blocked in this thread and in processes cloned from it, and it can't be
// cancelled.
class Undisturbed {
 public:
  explicit Undisturbed(const sigset_t& signals) {
    pthread_sigmask(SIG_BLOCK, &signals, &mask_);
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

// Clones this process to call `body`, with its own signal handling. It sends no signal when it exits, which
// distinguishes it from the children that the caller ignores.
pid_t Clone(int (*body)(void*), int flags, void* data) {
  const std::unique_ptr<char[]> stack(new char[kStackSize]);
  return clone(body, stack.get() + kStackSize, flags, data);
}

void ResetChildSignal() {
  struct sigaction usual = {};
  usual.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &usual, nullptr);
}

struct Order {
  const char* path;
  const char* const* argv;
  int result;
};

// Runs in a process that shares the caller's memory, while the thread that cloned it is suspended.
int RunOrder(void* data) {
  ResetChildSignal();
  try {
    Order& order = *static_cast<Order*>(data);
    const pid_t child = Spawn(order.path, order.argv, nullptr);
    if (child != -1) order.result = WaitFor(child);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  }
  return 0;
}

struct Watch {
  const PreparedSpawn& program;
  const char* path;
  const char* const* argv;
  int report;
};

// Closes all descriptors but `fd`, which becomes standard input, so that no pipe of the caller stays open here.
void CloseAllBut(int fd) {
  dup2(fd, STDIN_FILENO);
  closefrom(STDIN_FILENO + 1);
}

// Runs in a copy of the caller, in which other threads may have held any lock: nothing here allocates memory. Reports
// why the program could not be started, or 0, then waits for it and exits with its status, or is killed if it was.
int WatchProgram(void* data) {
  const Watch& watch = *static_cast<Watch*>(data);
  ResetChildSignal();
  pid_t child = -1;
  const int error = watch.program.Start(watch.path, watch.argv, &child);
  CloseAllBut(watch.report);
  WriteAll(STDIN_FILENO, reinterpret_cast<const char*>(&error), sizeof error);
  close(STDIN_FILENO);
  const int status = error == 0 ? WaitFor(child) : 0;
  if (status == -1) kill(getpid(), SIGKILL);
  _exit(status);
}

}  // namespace

bool CallerIgnoresChildren() {
  struct sigaction action = {};
  return sigaction(SIGCHLD, nullptr, &action) == 0 &&
         (action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0);
}

int RunAside(const char* path, const char* const* argv) {
  Order order{path, argv, -1};
  const Undisturbed undisturbed(CaughtSignals());
  const pid_t intermediate = Clone(RunOrder, CLONE_VM | CLONE_VFORK | CLONE_FILES | CLONE_FS, &order);
  if (intermediate == -1) return -1;
  const int reason = errno;
  WaitFor(intermediate);
  errno = reason;
  return order.result;
}

pid_t SpawnAside(const char* path, const char* const* argv, const Redirection* redirection) {
  const PreparedSpawn program(redirection);
  Pipe report;
  if (!OpenPipe(&report)) return -1;
  Watch watch{program, path, argv, report.writeEnd.Get()};
  const Undisturbed undisturbed(AllSignals());
  const pid_t intermediate = Clone(WatchProgram, 0, &watch);
  if (intermediate == -1) return -1;
  report.writeEnd = Descriptor();
  int error = ECHILD;  // if the intermediate process is killed before it has reported
  ReadSome(report.readEnd.Get(), reinterpret_cast<char*>(&error), sizeof error);
  if (error == 0) return intermediate;
  WaitFor(intermediate);
  errno = error;
  return -1;
}

}  // namespace tavi
