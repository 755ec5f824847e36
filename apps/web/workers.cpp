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

bool Workers::HasRoom() const {
  const auto making = static_cast<std::size_t>(
      std::count_if(workers_.begin(), workers_.end(), [](const Worker& worker) { return worker.IsMaking(); }));
  const std::size_t undead = supervisor_.CountProcesses() - workers_.size();  // they could not be killed
  return making + undead < limits_.making && (!free_.empty() || CountIdle() > 0);
}

bool Workers::AreDone() const {
  return std::none_of(workers_.begin(), workers_.end(),
                      [](const Worker& worker) { return worker.connection.IsOpen(); });
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
  child.standard = {-1, -1, STDERR_FILENO};
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
    if (worker.connection.IsOpen() && worker.channel.IsOpen()) {
      descriptors->push_back({worker.channel.Number(), POLLIN, 0});
    }
  }
}

void Workers::Collect() {
  for (Worker& worker : workers_) Receive(&worker);
  for (const EndedChild& ended : supervisor_.Collect()) CleanUp(ended);
}

void Workers::Receive(Worker* worker) {
  while (worker->connection.IsOpen() && worker->channel.IsOpen()) {
    Progress progress = {};
    const ssize_t size = recv(worker->channel.Number(), &progress, sizeof progress, MSG_DONTWAIT);
    if (size == -1 && (errno == EAGAIN || errno == EINTR)) return;
    if (size == sizeof progress) {
      Follow(progress, worker);
    } else {
      worker->channel = FileDescriptor();  // it has died
    }
  }
}

void Workers::Follow(Progress progress, Worker* worker) {
  if (progress == Progress::kSending) {
    worker->isSending = true;
    supervisor_.SetDeadline(worker->process, Clock::now() + sendingTimeout);
    return;
  }
  worker->connection = FileDescriptor();
  supervisor_.SetDeadline(worker->process, noDeadline);
  if (progress == Progress::kLast || CountIdle() > limits_.making) worker->channel = FileDescriptor();
}

void Workers::CleanUp(const EndedChild& ended) {
  const auto worker = std::find_if(workers_.begin(), workers_.end(),
                                   [&ended](const Worker& other) { return other.process == ended.process; });
  Receive(&*worker);  // what it told before it exited
  if (ended.status != 0) callbacks_.cleanUp(worker->process, *worker->state);
  if (worker->connection.IsOpen()) AnswerFor(ended, worker->connection.Number(), *worker->state);
  free_.push_back(worker->state);
  workers_.erase(worker);
}

}  // namespace tavithumb::apps::web
