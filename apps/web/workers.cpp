// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/workers.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "system/channel.h"
#include "web/connection.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

// Web servers give up on clients that read nothing long before.
constexpr std::chrono::hours sendingTimeout(1);

// Why a worker sent no response.
HttpError ErrorOf(const EndedChild& worker) {
  if (worker.wasLate) return {kGatewayTimeout, "the request took too long"};
  if (worker.wasStopped) return {kServiceUnavailable, "the service is stopping"};
  return {kServiceUnavailable, "the process answering the request died"};
}

void AnswerFor(const EndedChild& worker, int connection, const RequestState& state) {
  if (state.hasAnswered && !worker.wasLate) return;
  const HttpError error = ErrorOf(worker);
  syslog(LOG_WARNING, "%s: %d %s", state.request.data(), error.Code(), error.what());
  if (!state.hasAnswered) Respond(connection, ErrorResponse(error, true));
}

std::size_t Processes(const WorkerLimits& limits) {
  return limits.making + limits.sending;
}

}  // namespace

Workers::Workers(const WorkerLimits& limits, WorkerCallbacks callbacks)
    : limits_(limits), callbacks_(std::move(callbacks)) {
  const std::size_t size = Processes(limits_) * sizeof(RequestState);
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "shared memory");
  shared_ = static_cast<RequestState*>(memory);
  for (std::size_t i = Processes(limits_); i > 0; --i) free_.push_back(shared_ + i - 1);
}

Workers::~Workers() {
  munmap(shared_, Processes(limits_) * sizeof(RequestState));
}

std::size_t Workers::CountIdle() const {
  return static_cast<std::size_t>(
      std::count_if(workers_.begin(), workers_.end(), [](const Worker& worker) { return worker.IsIdle(); }));
}

std::size_t Workers::CountMaking() const {
  return static_cast<std::size_t>(
      std::count_if(workers_.begin(), workers_.end(), [](const Worker& worker) { return worker.IsMaking(); }));
}

bool Workers::CanStart() const {
  const std::size_t unkillable = supervisor_.CountProcesses() - workers_.size();  // they could not be killed
  return CountMaking() + unkillable < limits_.making && (!free_.empty() || CountIdle() > 0);
}

bool Workers::HasRoom() {
  Follow();
  if (CanStart()) return true;
  for (const Worker& worker : workers_) worker.state->isAwaited = true;
  Follow();  // those that were done before they could see that
  return CanStart();
}

bool Workers::AreDone() {
  Follow();
  return std::none_of(workers_.begin(), workers_.end(), [](const Worker& worker) { return worker.IsAnswering(); });
}

void Workers::Start(FileDescriptor connection) {
  try {
    Worker* worker = nullptr;
    do {
      worker = FindIdle();
    } while (!Give(connection, worker));
    worker->connection = std::move(connection);
  } catch (const std::system_error&) {
    Respond(connection.Number(),
            ErrorResponse({kServiceUnavailable, "no process could be started for the request"}, true));
  }
}

Workers::Worker* Workers::FindIdle() {
  const auto idle =
      std::find_if(workers_.begin(), workers_.end(), [](const Worker& worker) { return worker.IsIdle(); });
  return idle != workers_.end() ? &*idle : StartWorker();
}

Workers::Worker* Workers::StartWorker() {
  auto [ours, theirs] = OpenChannel();
  RequestState* const state = new (free_.back()) RequestState();
  ChildProcess child;
  child.channel = theirs.Number();
  child.diesWithParent = true;
  child.prepare = [this] { Prepare(); };
  child.work = [this, state, &child] { RunWorkerLoop(child.channel, state, callbacks_.answer); };
  const pid_t process = supervisor_.Start(child);
  free_.pop_back();
  workers_.push_back({process, std::move(ours), state, FileDescriptor(), false});
  return &workers_.back();
}

void Workers::Prepare() const {
  try {
    callbacks_.prepare();
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "a worker cannot be confined: %s", error.what());
    throw;
  }
}

// False if the worker has died while it was idle.
bool Workers::Give(const FileDescriptor& connection, Worker* worker) {
  worker->state->Reset();
  worker->state->isAwaited = CountMaking() + 1 >= limits_.making;
  worker->isSending = false;
  if (supervisor_.SetDeadline(worker->process, Clock::now() + limits_.timeout) &&
      SendDescriptor(worker->channel.Number(), connection.Number())) {
    return true;
  }
  worker->channel = FileDescriptor();
  return false;
}

void Workers::AddTo(std::vector<pollfd>* descriptors) const {
  descriptors->push_back({supervisor_.Descriptor(), POLLIN, 0});
  for (const Worker& worker : workers_) {
    if (worker.channel.IsOpen()) descriptors->push_back({worker.channel.Number(), POLLIN, 0});
  }
}

void Workers::Collect() {
  for (Worker& worker : workers_) Drain(&worker);
  Follow();
  for (const EndedChild& ended : supervisor_.Collect()) CleanUp(ended);
}

// Reads the notifications. The channel is closed once the worker has died.
void Workers::Drain(Worker* worker) const {
  char notification = 0;
  while (worker->channel.IsOpen()) {
    const ssize_t size = recv(worker->channel.Number(), &notification, sizeof notification, MSG_DONTWAIT);
    if (size == -1 && (errno == EAGAIN || errno == EINTR)) return;
    if (size != sizeof notification) worker->channel = FileDescriptor();
  }
}

void Workers::Follow() {
  for (Worker& worker : workers_) {
    if (worker.IsAnswering()) Follow(&worker);
  }
}

void Workers::Follow(Worker* worker) {
  const Progress progress = worker->state->progress;
  if (progress == Progress::kMaking) return;
  if (progress == Progress::kSending) {
    if (!worker->isSending) supervisor_.SetDeadline(worker->process, Clock::now() + sendingTimeout);
    worker->isSending = true;
    return;
  }
  worker->connection = FileDescriptor();
  const bool isRunning = supervisor_.SetDeadline(worker->process, noDeadline);
  if (progress == Progress::kLast || !isRunning || CountIdle() > limits_.making) worker->channel = FileDescriptor();
}

void Workers::CleanUp(const EndedChild& ended) {
  const auto worker = std::find_if(workers_.begin(), workers_.end(),
                                   [&ended](const Worker& other) { return other.process == ended.process; });
  Follow(&*worker);  // as far as it came
  if (ended.status != 0) callbacks_.cleanUp(worker->process, *worker->state);
  if (worker->IsAnswering()) AnswerFor(ended, worker->connection.Number(), *worker->state);
  free_.push_back(worker->state);
  workers_.erase(worker);
}

}  // namespace tavithumb::apps::web
