// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/supervisor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <system_error>

#include "system/file_descriptor.h"

namespace tavithumb::apps {
namespace {

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// This process may have inherited an ignored SIGCHLD, with which the system discards the exit status of children.
Signals WatchChildren() {
  static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
  return Signals({SIGCHLD});
}

void DieWith(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(1);  // the parent died before the signal was requested
}

void SetStandardDescriptors(const std::array<int, 3>& standard) {
  const FileDescriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (int target = STDIN_FILENO; target <= STDERR_FILENO; ++target) {
    const int wanted = standard.at(static_cast<std::size_t>(target));
    if (dup2(wanted == -1 ? nowhere.Number() : wanted, target) == -1) Fail("standard descriptors");
  }
}

// An inherited descriptor would keep another child's channel, or a connection, open. An empty range fails harmlessly.
void CloseAllBut(int channel) {
  const int kept = std::max(channel, STDERR_FILENO);
  close_range(STDERR_FILENO + 1, static_cast<unsigned>(kept) - 1, 0);
  close_range(static_cast<unsigned>(kept) + 1, ~0U, 0);
}

// An exception must not unwind into the parent's code.
[[noreturn]] void RunChild(const ChildProcess& child, pid_t parent) noexcept {
  try {
    setpgid(0, 0);
    if (child.diesWithParent) DieWith(parent);
    RestoreSignals();
    SetStandardDescriptors(child.standard);
    if (child.prepare) child.prepare();
    CloseAllBut(child.channel);
    child.work();
  } catch (...) {
    _exit(1);
  }
  _exit(0);
}

// Leaves an exited process unreaped, so that its id, which is also its group's, can't be reused.
bool HasEnded(pid_t process) {
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

// Zombies never stop, so waiting for a stop fails if no process in the group is alive.
bool HasLiveMembers(pid_t group) {
  siginfo_t info = {};
  return waitid(P_PGID, static_cast<id_t>(group), &info, WSTOPPED | WNOHANG | WNOWAIT) == 0;
}

// True if no process of the group is left.
bool ReapGroup(pid_t group, int* leaderStatus) {
  int status = 0;
  for (pid_t reaped = 0; (reaped = waitpid(-group, &status, WNOHANG)) != -1;) {
    if (reaped == 0) return false;
    if (reaped == group) *leaderStatus = status;
  }
  return true;
}

}  // namespace

void BecomeProgram(const std::vector<std::string>& arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // it is not in the group of its parent, and may ignore SIGTERM
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  execv(pointers.front(), pointers.data());
  _exit(127);
}

// As a subreaper, this process becomes the parent of the processes that a dead leader leaves behind, and can reap them.
Supervisor::Supervisor(GracePeriods graces) : graces_(graces), childSignals_(WatchChildren()) {
  prctl(PR_GET_CHILD_SUBREAPER, &wasSubreaper_);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Supervisor::~Supervisor() {
  for (Child& child : children_) {
    if (child.stage < Stage::kKilled) Kill(&child, Clock::now());
  }
  while (HasUnreported()) {
    Wait();
    Collect();
  }
  prctl(PR_SET_CHILD_SUBREAPER, wasSubreaper_);
}

pid_t Supervisor::Start(const ChildProcess& child) {
  children_.emplace_back();
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process == 0) RunChild(child, parent);
  if (process == -1) {
    children_.pop_back();
    Fail("no process could be started");
  }
  setpgid(process, process);  // parent and child both do this: neither may continue before it is done
  children_.back().process = process;
  return process;
}

bool Supervisor::SetDeadline(pid_t process, Clock::time_point deadline) {
  const auto found = std::find_if(children_.begin(), children_.end(),
                                  [process](const Child& child) { return child.process == process; });
  if (found == children_.end() || found->stage != Stage::kRunning) return false;
  found->deadline = deadline;
  return true;
}

std::vector<EndedChild> Supervisor::Collect() {
  bool isSignalled = false;
  while (childSignals_.Receive()) isSignalled = true;
  const Clock::time_point now = Clock::now();
  std::vector<EndedChild> ended;
  if (!isSignalled && now < NextEvent()) return ended;
  for (auto child = children_.begin(); child != children_.end();) {
    Advance(&*child, now);
    const bool isGone = child->stage >= Stage::kKilled && ReapGroup(child->process, &child->status);
    if (child->stage == Stage::kKilled && (isGone || now >= child->deadline)) {
      ended.push_back({child->process, child->status, child->wasLate, child->wasStopped});
      child->stage = Stage::kReported;
      child->deadline = noDeadline;
    }
    child = isGone ? children_.erase(child) : std::next(child);
  }
  return ended;
}

void Supervisor::Advance(Child* child, Clock::time_point now) const {
  const bool isDue = now >= child->deadline;
  if (child->stage == Stage::kRunning) {
    if (HasEnded(child->process)) return Kill(child, now);
    child->wasLate = isDue;
    if (isDue) Terminate(child, now);
  } else if (child->stage == Stage::kTerminating && (isDue || !HasLiveMembers(child->process))) {
    Kill(child, now);
  }
}

void Supervisor::Terminate(Child* child, Clock::time_point now) const {
  kill(-child->process, SIGTERM);
  child->stage = Stage::kTerminating;
  child->deadline = now + graces_.afterTerm;
}

void Supervisor::Kill(Child* child, Clock::time_point now) const {
  kill(-child->process, SIGKILL);
  child->stage = Stage::kKilled;
  child->deadline = now + graces_.afterKill;
}

Clock::time_point Supervisor::NextEvent() const {
  Clock::time_point next = noDeadline;
  for (const Child& child : children_) next = std::min(next, child.deadline);
  return next;
}

void Supervisor::Wait() const {
  pollfd entry = {Descriptor(), POLLIN, 0};
  poll(&entry, 1, MillisecondsUntil(NextEvent()));
}

void Supervisor::Interrupt() {
  if (isInterrupted_) StopAll();
  isInterrupted_ = true;
}

void Supervisor::StopAll() {
  for (Child& child : children_) {
    if (child.stage != Stage::kRunning || HasEnded(child.process)) continue;
    child.wasStopped = true;
    Terminate(&child, Clock::now());
  }
}

EndedChild Supervisor::Run(const ChildProcess& child, Clock::time_point deadline) {
  Supervisor supervisor;
  supervisor.SetDeadline(supervisor.Start(child), deadline);
  for (;;) {
    for (const EndedChild& ended : supervisor.Collect()) return ended;
    supervisor.Wait();
  }
}

bool Supervisor::HasUnreported() const {
  return std::any_of(children_.begin(), children_.end(),
                     [](const Child& child) { return child.stage != Stage::kReported; });
}

}  // namespace tavithumb::apps
