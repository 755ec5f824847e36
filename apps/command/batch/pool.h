// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "command/batch/report.h"
#include "command/batch/work.h"
#include "system/clock.h"
#include "system/file_descriptor.h"
#include "system/supervisor.h"

namespace tavithumb::apps::command {

// A dispatched file, with its result.
struct Done {
  std::string name;
  Result result;
  double milliseconds;
};

// Processes files in forked workers, one file at a time each: the library makes one thumbnail at a time, and a file
// that crashes a decoder kills only one worker. That file fails, as does one that takes too long, and another worker
// replaces the dead one. A worker receives paths over a socket, and sends back reports. Root's workers have one owner
// of folders each: for the files of another, an idle one makes room.
class Pool {
 public:
  Pool(std::size_t maximum, Order order);
  // Stops all workers, and removes the files that they leave behind.
  ~Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  // False if no worker is free. Throws std::system_error if no worker at all can be started.
  bool Dispatch(const std::string& name);
  // The number of workers that are processing a file.
  std::size_t Running() const;

  // Collect() returns the files finished since the last call. Call it when one of the descriptors that AddTo() adds is
  // readable, and at NextEvent().
  std::vector<Done> Collect();
  void AddTo(std::vector<pollfd>* descriptors) const;
  Clock::time_point NextEvent() const { return supervisor_.NextEvent(); }

  // After the first call, dispatch nothing more. The second call stops the workers; unfinished files get no result.
  void Interrupt() { supervisor_.Interrupt(); }
  bool IsInterrupted() const { return supervisor_.IsInterrupted(); }

 private:
  struct Task {
    std::string name;
    std::string path;
    Clock::time_point start;
    Report last;
  };

  struct Worker {
    pid_t process = -1;
    uid_t user = 0;          // whose files it processes; root's only
    FileDescriptor channel;  // closed when the worker has exited, or gets no more files
    std::string scratch;
    std::optional<Task> task;
  };

  Worker* FindIdle(uid_t user);
  Worker* StartUnlessFull(uid_t user);
  void MakeRoom();
  Worker StartWorker(uid_t user);
  void Receive(Worker* worker, std::vector<Done>* done);
  void Finish(Worker* worker, Result result, std::vector<Done>* done);
  void CleanUp(const EndedChild& ended, std::vector<Done>* done);
  void FinishEnded(Worker* worker, const EndedChild& ended, std::vector<Done>* done);
  void RemoveHalfMadeOf(const Worker& worker) const;

  const bool isRoots_;
  std::size_t maximum_;
  Order order_;
  Supervisor supervisor_;
  std::list<Worker> workers_;
};

}  // namespace tavithumb::apps::command
