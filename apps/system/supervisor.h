// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>
#include <list>
#include <vector>

#include "system/clock.h"
#include "system/signals.h"

namespace tavithumb::apps {

// What a forked child runs, and what it keeps of its parent.
struct ChildProcess {
  // Its standard input, output and error: -1 for /dev/null, else a descriptor above 2, or the one already in that
  // place.
  std::array<int, 3> standard = {-1, -1, -1};
  // One more descriptor that stays open, under the same number; -1 for none. All others are closed.
  int channel = -1;
  // Whether it gets SIGTERM when its parent dies; else it finishes.
  bool diesWithParent = false;
  // Optional. Called before the work, while the parent's descriptors above 2 are still open.
  std::function<void()> prepare;
  // The child exits with 0 when it returns, and with 1 when this or `prepare` throws.
  std::function<void()> work;
};

struct EndedChild {
  pid_t process;
  int status;       // as waitpid() reports it; that of SIGKILL when the system does not let go of the process
  bool wasLate;     // stopped at its deadline
  bool wasStopped;  // stopped by StopAll() before its deadline
};

// How long a process group may take to end, and the system to clean up after it.
struct GracePeriods {
  std::chrono::milliseconds afterTerm{1000};
  std::chrono::milliseconds afterKill{10000};
};

// Forks children and sees to their end. Each leads a process group, so that a terminal's Ctrl-C does not reach it and
// its tools can be signalled with it. At its deadline the group gets SIGTERM, and SIGKILL after a grace period. When
// the leader has ended, what is left of its group is killed. A child is reported once the whole group is gone, or when
// the system has failed to end it within another grace period.
//
// The process becomes a subreaper, and SIGCHLD is blocked, with its default action, as long as this lives.
// For one thread.
class Supervisor {
 public:
  // Throws std::system_error.
  explicit Supervisor(GracePeriods graces = {});
  // Kills what still runs and waits for its end.
  ~Supervisor();
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  // Forks a child without a deadline. Throws std::system_error.
  pid_t Start(const ChildProcess& child);

  // Sets the deadline of the task that a child works on, noDeadline when it is idle. False when it is not running, or
  // is being stopped: then it should get no further task.
  bool SetDeadline(pid_t process, Clock::time_point deadline);

  // All processes that were started and are not gone, including those that were reported without being gone.
  std::size_t CountProcesses() const { return children_.size(); }

  // To be called when Descriptor() is readable and when NextEvent() has come: signals what is due, and returns the
  // children that have ended since. Each is returned once.
  std::vector<EndedChild> Collect();
  int Descriptor() const { return childSignals_.Descriptor(); }
  Clock::time_point NextEvent() const;
  // Waits for either of the two.
  void Wait() const;

  // A request to shut down. After the first the owner starts nothing new, and what runs may finish; the second is
  // StopAll().
  void Interrupt();
  bool IsInterrupted() const { return isInterrupted_; }

  // Stops all children as if their deadlines had come.
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
  Signals childSignals_;
  std::list<Child> children_;
  bool isInterrupted_ = false;
};

}  // namespace tavithumb::apps
