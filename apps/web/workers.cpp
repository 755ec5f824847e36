// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/workers.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "web/connection.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

// Between the request to end and the end.
constexpr std::chrono::seconds grace(1);

void RestoreSignals() {
  sigset_t none;
  sigemptyset(&none);
  for (const int number : {SIGTERM, SIGINT, SIGCHLD}) static_cast<void>(signal(number, SIG_DFL));
  for (const int number : {SIGPIPE, SIGXFSZ}) static_cast<void>(signal(number, SIG_IGN));
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool HasEnded(pid_t process) {  // and remains to be waited for
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

}  // namespace

int MillisecondsUntil(Clock::time_point moment) {
  if (moment == Clock::time_point::max()) return -1;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(moment - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(wait.count(), 0));
}

void Progress::SetRequest(const std::string& text) {
  request[text.copy(request.data(), request.size() - 1)] = '\0';
}

Workers::Workers(std::size_t maximum, std::chrono::milliseconds deadline, Duties duties)
    : maximum_(maximum), deadline_(deadline), duties_(std::move(duties)) {
  void* const memory =
      mmap(nullptr, maximum_ * sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "shared memory");
  shared_ = static_cast<Progress*>(memory);
  for (std::size_t i = 0; i < maximum_; ++i) free_.push_back(new (shared_ + i) Progress());
}

Workers::~Workers() {
  munmap(shared_, maximum_ * sizeof(Progress));
}

Progress* Workers::TakeProgress() {
  Progress* const progress = free_.back();
  free_.pop_back();
  progress->hasAnswered = false;
  progress->SetRequest("a request");
  progress->scratch.front() = '\0';
  return progress;
}

void Workers::Start(FileDescriptor connection) {
  Progress* const progress = TakeProgress();
  const pid_t process = fork();
  if (process == 0) Run(connection.Number(), progress);
  if (process == -1) {
    Respond(connection.Number(),
            ErrorResponse({kServiceUnavailable, "no process could be started for the request"}, true));
    free_.push_back(progress);
    return;
  }
  setpgid(process, process);
  workers_.push_back({process, std::move(connection), progress, Stage::kRunning, Clock::now() + deadline_, false});
}

// Nothing but the connection is left open: a connection of somebody else would never end.
void Workers::Run(int connection, Progress* progress) const noexcept {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  RestoreSignals();
  dup2(connection, STDIN_FILENO);
  dup2(connection, STDOUT_FILENO);
  duties_.enter();
  close_range(STDERR_FILENO + 1, ~0U, 0);
  duties_.answer(progress);
  progress->hasAnswered = true;
  static_cast<void>(std::fflush(stdout));
  EndResponse(STDOUT_FILENO);
  _exit(0);
}

void Workers::Tend() {
  const Clock::time_point now = Clock::now();
  for (auto worker = workers_.begin(); worker != workers_.end();) {
    worker = Tend(&*worker, now) ? workers_.erase(worker) : std::next(worker);
  }
}

// True when nothing is left of the worker. Until its whole group has been killed its own process stays unburied, so
// that the group's number can't become somebody else's.
bool Workers::Tend(Worker* worker, Clock::time_point now) {
  const bool hasEnded = HasEnded(worker->process);
  const bool isWell = hasEnded && worker->stage == Stage::kRunning;
  if (now >= worker->deadline && !isWell) PushOn(worker, now);
  if (!hasEnded) return false;
  if (worker->connection.IsOpen()) AnswerFor(worker);
  if (worker->stage == Stage::kToldToEnd) return false;
  kill(-worker->process, SIGKILL);
  int status = 0;
  waitpid(worker->process, &status, 0);
  if (status != 0) duties_.cleanUp(worker->process, *worker->progress);
  free_.push_back(worker->progress);
  return true;
}

void Workers::PushOn(Worker* worker, Clock::time_point now) {
  const bool wasRunning = worker->stage == Stage::kRunning;
  kill(-worker->process, wasRunning ? SIGTERM : SIGKILL);
  worker->stage = wasRunning ? Stage::kToldToEnd : Stage::kKilled;
  worker->deadline = now + grace;
}

void Workers::AnswerFor(Worker* worker) {
  const FileDescriptor connection = std::move(worker->connection);
  const bool isLate = worker->stage != Stage::kRunning && !worker->isAbandoned;
  if (worker->progress->hasAnswered && !isLate) return;
  const HttpError error = isLate ? HttpError(kGatewayTimeout, "the request took too long")
                          : worker->isAbandoned
                              ? HttpError(kServiceUnavailable, "the service is stopping")
                              : HttpError(kServiceUnavailable, "the process answering the request died");
  syslog(LOG_WARNING, "%s: %d %s", worker->progress->request.data(), error.Code(), error.what());
  if (!worker->progress->hasAnswered) Respond(connection.Number(), ErrorResponse(error, true));
}

Clock::time_point Workers::NextEvent() const {
  Clock::time_point next = Clock::time_point::max();
  for (const Worker& worker : workers_) next = std::min(next, worker.deadline);
  return next;
}

void Workers::EndAll() {
  for (Worker& worker : workers_) {
    if (worker.stage != Stage::kRunning) continue;
    worker.deadline = Clock::now();
    worker.isAbandoned = true;
  }
}

}  // namespace tavithumb::apps::web
