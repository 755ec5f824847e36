// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/workers.h"

#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>
#include <utility>

#include "web/connection.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

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

}  // namespace

Workers::Workers(std::size_t maximum, std::chrono::milliseconds timeout, WorkerCallbacks callbacks)
    : maximum_(maximum), timeout_(timeout), callbacks_(std::move(callbacks)) {
  const std::size_t size = maximum_ * sizeof(RequestState);
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "shared memory");
  shared_ = static_cast<RequestState*>(memory);
  for (std::size_t i = 0; i < maximum_; ++i) free_.push_back(new (shared_ + i) RequestState());
}

Workers::~Workers() {
  munmap(shared_, maximum_ * sizeof(RequestState));
}

RequestState* Workers::AllocateState() {
  RequestState* const state = free_.back();
  free_.pop_back();
  state->hasAnswered = false;
  state->SetRequest("a request");
  state->scratch.front() = '\0';
  return state;
}

void Workers::Start(FileDescriptor connection) {
  RequestState* const state = AllocateState();
  ChildProcess child;
  child.standard = {connection.Number(), connection.Number(), STDERR_FILENO};
  child.diesWithParent = true;
  child.prepare = [this] { Prepare(); };
  child.work = [this, state] { RunWorker(state); };
  try {
    const pid_t process = supervisor_.Start(child);
    supervisor_.SetDeadline(process, Clock::now() + timeout_);
    requests_.emplace(process, Request{std::move(connection), state});
  } catch (const std::system_error&) {
    Respond(connection.Number(),
            ErrorResponse({kServiceUnavailable, "no process could be started for the request"}, true));
    free_.push_back(state);
  }
}

void Workers::Prepare() const {
  try {
    callbacks_.prepare();
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "a worker cannot be confined: %s", error.what());
    throw;
  }
}

void Workers::RunWorker(RequestState* state) const {
  callbacks_.answer(state);
  state->hasAnswered = true;
  static_cast<void>(std::fflush(stdout));
  EndResponse(STDOUT_FILENO);
}

void Workers::Collect() {
  for (const EndedChild& worker : supervisor_.Collect()) {
    const auto request = requests_.find(worker.process);
    RequestState* const state = request->second.state;
    if (worker.status != 0) callbacks_.cleanUp(worker.process, *state);
    AnswerFor(worker, request->second.connection.Number(), *state);
    free_.push_back(state);
    requests_.erase(request);
  }
}

}  // namespace tavithumb::apps::web
