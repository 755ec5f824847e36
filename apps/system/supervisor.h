// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "system/clock.h"
#include "system/signals.h"

namespace tavithumb::apps {

// What a forked child runs, and what it inherits.
struct ChildProcess {
  // Its standard input, output and error: -1 for /dev/null, else a descriptor above 2, or the standard descriptor
  // itself.
  std::array<int, 3> standard = {-1, -1, -1};
  // A further descriptor that stays open under its number; -1 for none. All others are closed.
  int channel = -1;
  // Whether it gets SIGTERM when its parent dies; otherwise it finishes its work.
  bool diesWithParent = false;
  // Optional. Called before the work, while the parent's descriptors above 2 are still open.
  std::function<void()> prepare;
  // The child exits with 0 when this returns, and with 1 if this or `prepare` throws.
  std::function<void()> work;
};

// For the work of a child: the process becomes this program, the arguments of which begin with its absolute path. It
// keeps the standard descriptors, and is killed when its parent dies. Exits with 127 if it can't be started.
[[noreturn]] void BecomeProgram(const std::vector<std::string>& arguments);

struct EndedChild {
  pid_t process;
  int status;       // as waitpid() reports it; that of SIGKILL if the process could not be killed
  bool wasLate;     // stopped at its deadline
  bool wasStopped;  // stopped by StopAll() before its deadline
};

// How long a process group may take to exit, and then the system to clean up after it.
struct GracePeriods {
  std::chrono::milliseconds afterTerm{1000};
  std::chrono::milliseconds afterKill{10000};
};

// Forks children, enforces their deadlines and reaps them. Each leads a process group, so that a terminal's Ctrl-C does
// not reach it and its tools can be signalled with it. At its deadline the group gets SIGTERM, and SIGKILL after a
// grace period. When the leader has exited, the rest of its group is killed. A child is reported once the whole group
// is gone, or if it could not be killed within another grace period.
//
// During its lifetime the process is a subreaper, and SIGCHLD is blocked. SIGCHLD has its default action from then on.
// For use by one thread.
class Supervisor {
 public:
  // Throws std::system_error.
  explicit Supervisor(GracePeriods graces = {});
  // Kills the children that still run, and reaps them.
  ~Supervisor();
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  // Forks a child without a deadline. Throws std::system_error.
  pid_t Start(const ChildProcess& child);

  // Sets the deadline of a child's current task, noDeadline while it is idle. False if it is not running, or is being
  // stopped: do not give it another task then.
  bool SetDeadline(pid_t process, Clock::time_point deadline);

  // The number of children that are not gone, including those reported because they could not be killed.
  std::size_t CountProcesses() const { return children_.size(); }

  // Call it when Descriptor() is readable, and at NextEvent(): sends the signals that are due, and returns the children
  // that have exited since the last call. Each is returned once.
  std::vector<EndedChild> Collect();
  int Descriptor() const { return childSignals_.Descriptor(); }
  Clock::time_point NextEvent() const;
  // Waits for either of the two.
  void Wait() const;

  // A request to shut down. After the first, the owner starts nothing new, and running children may finish; the second
  // calls StopAll().
  void Interrupt();
  bool IsInterrupted() const { return isInterrupted_; }

  // Runs a child of its own until it has exited, or its deadline has passed. Throws like Start().
  static EndedChild Run(const ChildProcess& child, Clock::time_point deadline);

  // Stops all children as if their deadlines had passed.
  void StopAll();

 private:
  enum class Stage { kRunning, kTerminating, kKilled, kReported };

  struct Child {
    pid_t process = -1;
    Stage stage = Stage::kRunning;
    Clock::time_point deadline = noDeadline;  // of the task, later of the stage
    int status = SIGKILL;                     // until the system reports another
    bool wasLate = false;
    bool wasStopped = false;
  };

  void Advance(Child* child, Clock::time_point now) const;
  void Terminate(Child* child, Clock::time_point now) const;
  void Kill(Child* child, Clock::time_point now) const;
  bool HasUnreported() const;

  GracePeriods graces_;
  int wasSubreaper_ = 0;
  Signals childSignals_;
  std::list<Child> children_;
  bool isInterrupted_ = false;
};

}  // namespace tavithumb::apps
