// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "command/batch/work.h"
#include "command/batch/worker.h"
#include "system/file_descriptor.h"

namespace tavithumb::apps::command {

// A file that was given out, with what has come of it.
struct Done {
  std::string name;
  Result result;
  double milliseconds;
};

// Works on files in processes of its own, each on one file at a time: the library works on one at a time only, and a
// file that crashes a decoder ends that process alone. Such a file counts as failed, as does one that takes too long.
// Each process is the head of a group with its tools, so that a terminal's Ctrl-C does not reach them.
class Pool {
 public:
  Pool(std::size_t maximum, Order order);
  // Ends all that still runs.
  ~Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  // False when none is free. Throws std::system_error when not a single process can be started.
  bool Give(const std::string& name);
  std::size_t Running() const;

  // Adds what to wait for, as long as NextEvent() milliseconds, -1 for without an end, before Collect().
  void AddTo(std::vector<pollfd>* descriptors) const;
  int NextEvent() const;
  std::vector<Done> Collect();

  // Ends what runs, and its tools, as soon as they can; nothing comes of those files.
  void Abandon();

 private:
  using Clock = std::chrono::steady_clock;

  enum class Stage { kWell, kToldToEnd, kKilled };

  struct Task {
    std::string name;
    std::string path;
    Clock::time_point start;
    Report last;
  };

  struct Worker {
    pid_t process = -1;
    FileDescriptor line;  // closed when it has ended, or is as good as that
    std::string scratch;
    std::optional<Task> task;
    Stage stage = Stage::kWell;
    Clock::time_point deadline;  // of the task, or of what its end takes
    int status = 0;              // as waitpid() tells it
  };

  Worker* FindIdle();
  Worker* Start();
  Worker Fork() const;
  static void Listen(Worker* worker, std::vector<Done>* done);
  static void Finish(Worker* worker, Result result, std::vector<Done>* done);
  static void PushOn(Worker* worker);
  static void Break(Worker* worker);
  static bool IsGone(Worker* worker);
  void LayToRest(Worker* worker, std::vector<Done>* done) const;

  std::size_t maximum_;
  Order order_;
  std::list<Worker> workers_;
  bool isAbandoned_ = false;
};

}  // namespace tavithumb::apps::command
