// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <vector>

#include "system/clock.h"
#include "system/file_descriptor.h"
#include "system/supervisor.h"
#include "web/request_state.h"

namespace tavithumb::apps::web {

struct WorkerCallbacks {
  // In the worker, before it reads anything, while all that its parent has open is still open. May throw: then the
  // worker dies.
  std::function<void()> prepare;
  // In the worker: answers one request. Standard input and output are the connection; nothing else is open.
  std::function<void(RequestState*)> answer;
  // In the parent, after a worker has died before it finished.
  std::function<void(pid_t, const RequestState&)> cleanUp;
};

// Answers each request in a process of its own, forked from this one, which is warm. The library writes to standard
// output, leaves a pipe open and changes the ids of its whole process; and a file that crashes a decoder ends one
// worker only. Whatever happens to a worker, its connection gets an answer.
class Workers {
 public:
  // At most `maximum` at once, each for `timeout` at most. Throws std::system_error.
  Workers(std::size_t maximum, std::chrono::milliseconds timeout, WorkerCallbacks callbacks);
  // Stops all that still run.
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // Also false while the system does not let go of workers that were killed.
  bool HasRoom() const { return supervisor_.CountProcesses() < maximum_; }
  bool AreDone() const { return requests_.empty(); }
  // To be called when there is room.
  void Start(FileDescriptor connection);

  // Stops workers that are late, and answers for those that have died. To be called when Descriptor() is readable, and
  // when NextEvent() has come.
  void Collect();
  int Descriptor() const { return supervisor_.Descriptor(); }
  Clock::time_point NextEvent() const { return supervisor_.NextEvent(); }

  // After the first call no request is to be started; the second one stops those that run.
  void Interrupt() { supervisor_.Interrupt(); }
  bool IsInterrupted() const { return supervisor_.IsInterrupted(); }
  void StopAll() { supervisor_.StopAll(); }

 private:
  struct Request {
    FileDescriptor connection;
    RequestState* state;
  };

  RequestState* AllocateState();
  void Prepare() const;
  void RunWorker(RequestState* state) const;

  std::size_t maximum_;
  std::chrono::milliseconds timeout_;
  WorkerCallbacks callbacks_;
  RequestState* shared_;
  std::vector<RequestState*> free_;
  Supervisor supervisor_;
  std::map<pid_t, Request> requests_;
};

}  // namespace tavithumb::apps::web
