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
  // In the worker, before it reads anything, while all descriptors of its parent are still open. If it throws, the
  // worker exits.
  std::function<void()> prepare;
  // In the worker: answers one request. Standard input and output are the connection; nothing else is open.
  std::function<void(RequestState*)> answer;
  // In the parent, after a worker has died without finishing.
  std::function<void(pid_t, const RequestState&)> cleanUp;
};

// Answers each request in a separate process, forked from this one, which is already initialised. The library writes to
// standard output, leaves a pipe open and changes the ids of its whole process, and a file that crashes a decoder kills
// only one worker. Whatever happens to a worker, its connection gets a response.
class Workers {
 public:
  // At most `maximum` workers at once, each for at most `timeout`. Throws std::system_error.
  Workers(std::size_t maximum, std::chrono::milliseconds timeout, WorkerCallbacks callbacks);
  // Stops all workers that still run.
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // Also false while killed workers have not yet gone.
  bool HasRoom() const { return supervisor_.CountProcesses() < maximum_; }
  bool AreDone() const { return requests_.empty(); }
  // Call it only if there is room.
  void Start(FileDescriptor connection);

  // Stops workers that have missed their deadline, and sends the responses for those that have died. Call it when
  // Descriptor() is readable, and at NextEvent().
  void Collect();
  int Descriptor() const { return supervisor_.Descriptor(); }
  Clock::time_point NextEvent() const { return supervisor_.NextEvent(); }

  // After the first call, start no new request; the second call stops those in progress.
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
