// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <vector>

#include "system/clock.h"
#include "system/file_descriptor.h"
#include "system/supervisor.h"
#include "web/request_state.h"
#include "web/worker.h"

namespace tavithumb::apps::web {

struct WorkerCallbacks {
  // In a new worker, before it reads anything, while all descriptors of its parent are still open. If it throws, the
  // worker exits.
  std::function<void()> prepare;
  // In the worker: answers one request. Standard input and output are the connection, standard error is discarded:
  // messages of tools and image libraries are not for the log.
  std::function<void(const Turn&)> answer;
  // In the parent, after a worker has died without finishing.
  std::function<void(pid_t, const RequestState&)> cleanUp;
};

struct WorkerLimits {
  std::size_t making;                 // how many may read requests and make answers at once
  std::size_t sending;                // how many more may only send one
  std::chrono::milliseconds timeout;  // for an answer to be ready to be sent
};

// Answers requests in processes forked from this one, which is already initialised. The library writes to standard
// output, leaves a pipe open and changes the ids of its whole process, and a file that crashes a decoder kills only one
// worker. A worker that has only served what was there answers further requests; RunWorkerLoop() says when it is
// replaced. Whatever happens to a worker, its connection gets a response.
class Workers {
 public:
  // Throws std::system_error.
  Workers(const WorkerLimits& limits, WorkerCallbacks callbacks);
  // Stops all workers that still run.
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // Also false while killed workers have not yet gone. Then the next worker that is done makes a descriptor readable.
  bool HasRoom();
  bool AreDone();
  // Call it only if there is room.
  void Start(FileDescriptor connection);

  // Follows the workers, stops those that have missed their deadline, and sends the responses for those that have died.
  // Call it when one of the descriptors that AddTo() adds is readable, and at NextEvent().
  void Collect();
  void AddTo(std::vector<pollfd>* descriptors) const;
  Clock::time_point NextEvent() const { return supervisor_.NextEvent(); }

  // After the first call, start no new request; the second call stops those in progress.
  void Interrupt() { supervisor_.Interrupt(); }
  bool IsInterrupted() const { return supervisor_.IsInterrupted(); }
  void StopAll() { supervisor_.StopAll(); }

 private:
  struct Worker {
    pid_t process = -1;
    FileDescriptor channel;  // closed when it gets no more requests
    RequestState* state = nullptr;
    FileDescriptor connection;  // of the request that it is answering
    bool isSending = false;     // the parent has taken note of that

    bool IsAnswering() const { return connection.IsOpen(); }
    bool IsIdle() const { return channel.IsOpen() && !IsAnswering(); }
    bool IsMaking() const { return IsAnswering() && state->progress == Progress::kMaking; }
  };

  std::size_t CountIdle() const;
  std::size_t CountMaking() const;
  Worker* FindIdle();
  Worker* StartWorker();
  void Prepare() const;
  bool Give(const FileDescriptor& connection, Worker* worker);
  bool CanStart() const;
  // Takes note of the workers' progress.
  void Follow();
  void Follow(Worker* worker);
  void Drain(Worker* worker) const;
  void CleanUp(const EndedChild& ended);

  WorkerLimits limits_;
  WorkerCallbacks callbacks_;
  RequestState* shared_;
  std::vector<RequestState*> free_;
  Supervisor supervisor_;
  std::list<Worker> workers_;
};

}  // namespace tavithumb::apps::web
