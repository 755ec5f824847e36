// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/pool.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "command/batch/worker.h"
#include "command/output.h"
#include "system/paths.h"
#include "thumbs/temporary_files.h"

namespace tavithumb::apps::command {
namespace {

constexpr std::chrono::minutes mostTime(5);
// Between the request to end and the end, and how long the system may take for that.
constexpr std::chrono::seconds grace(1);
constexpr std::chrono::seconds lastGrace(10);
// What has been killed is gone after some milliseconds.
constexpr std::chrono::milliseconds burialTime(5);

Problem WhyEnded(bool isLate, int status) {
  using Kind = Problem::Kind;
  if (isLate) return {Kind::kDamaged, "it took longer than 5 minutes", "check that it opens in another program"};
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) {
    return {Kind::kNoMemory, "the process working on it was killed", "try again when more memory is free"};
  }
  const char* const signal = WIFSIGNALED(status) ? sigdescr_np(WTERMSIG(status)) : nullptr;
  const std::string how = signal == nullptr ? "" : std::string(" (") + signal + ")";
  return {Kind::kDamaged, "the decoder crashed on this file" + how, "get a fresh copy of it"};
}

}  // namespace

// What a worker that dies leaves behind becomes this process's children, so that it knows when all of it has ended.
Pool::Pool(std::size_t maximum, Order order) : maximum_(maximum), order_(std::move(order)) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Pool::~Pool() {
  Abandon();
  for (Worker& worker : workers_) {
    if (!worker.task) Break(&worker);
  }
  while (!workers_.empty()) {
    std::vector<pollfd> descriptors;
    AddTo(&descriptors);
    poll(descriptors.data(), descriptors.size(), NextEvent());
    Collect();
  }
}

std::size_t Pool::Running() const {
  return static_cast<std::size_t>(
      std::count_if(workers_.begin(), workers_.end(), [](const Worker& worker) { return worker.task.has_value(); }));
}

bool Pool::Give(const std::string& name) {
  const std::string path = AbsolutePath(name);
  while (Worker* const worker = FindIdle()) {
    if (send(worker->line.Number(), path.c_str(), path.size() + 1, MSG_NOSIGNAL) != -1) {
      const Clock::time_point now = Clock::now();
      worker->task = Task{name, path, now, {}};
      worker->deadline = now + mostTime;
      return true;
    }
    Break(worker);  // it has been killed while it waited
  }
  return false;
}

Pool::Worker* Pool::FindIdle() {
  const auto idle = std::find_if(workers_.begin(), workers_.end(), [](const Worker& worker) {
    return worker.line.IsOpen() && !worker.task && worker.stage == Stage::kWell;
  });
  if (idle != workers_.end()) return &*idle;
  return workers_.size() < maximum_ ? Start() : nullptr;
}

// Goes on with fewer where the system allows no more.
Pool::Worker* Pool::Start() {
  try {
    workers_.push_back(Fork());
    return &workers_.back();
  } catch (const std::system_error&) {
    if (workers_.empty()) throw;
    maximum_ = workers_.size();
    return nullptr;
  }
}

Pool::Worker Pool::Fork() const {
  std::array<int, 2> ends = {-1, -1};
  const bool isOpen = socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0;
  Worker worker;
  worker.line = FileDescriptor(ends[0]);
  const FileDescriptor other(ends[1]);
  if (!isOpen) throw std::system_error(errno, std::generic_category(), "no process could be started");
  worker.scratch = MakeScratchFolder(std::filesystem::temp_directory_path() / "tavithumb-make.XXXXXX");
  worker.process = fork();
  if (worker.process == 0) BeWorker(other.Number(), worker.scratch, order_);
  if (worker.process == -1) {
    const int reason = errno;
    rmdir(worker.scratch.c_str());
    throw std::system_error(reason, std::generic_category(), "no process could be started");
  }
  setpgid(worker.process, worker.process);
  return worker;
}

void Pool::AddTo(std::vector<pollfd>* descriptors) const {
  for (const Worker& worker : workers_) {
    if (worker.line.IsOpen()) descriptors->push_back({worker.line.Number(), POLLIN, 0});
  }
}

int Pool::NextEvent() const {
  Clock::time_point next = Clock::time_point::max();
  for (const Worker& worker : workers_) {
    if (!worker.line.IsOpen()) return burialTime.count();
    if (worker.task) next = std::min(next, worker.deadline);
  }
  if (next == Clock::time_point::max()) return -1;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(wait.count(), 0));
}

// What has been told counts, however late it is.
std::vector<Done> Pool::Collect() {
  std::vector<Done> done;
  for (auto worker = workers_.begin(); worker != workers_.end();) {
    if (worker->line.IsOpen()) Listen(&*worker, &done);
    if (worker->line.IsOpen() && worker->task && Clock::now() >= worker->deadline) PushOn(&*worker);
    if (!worker->line.IsOpen() && (IsGone(&*worker) || Clock::now() >= worker->deadline)) {
      LayToRest(&*worker, &done);
      worker = workers_.erase(worker);
    } else {
      ++worker;
    }
  }
  return done;
}

void Pool::Listen(Worker* worker, std::vector<Done>* done) {
  std::array<char, longestMessage> message;
  while (worker->line.IsOpen()) {
    const ssize_t got = recv(worker->line.Number(), message.data(), message.size(), MSG_DONTWAIT);
    if (got == -1 && (errno == EAGAIN || errno == EINTR)) return;
    if (got <= 0 || !worker->task) return Break(worker);
    worker->task->last = nlohmann::json::parse(message.data(), message.data() + got).get<Report>();
    if (worker->task->last.making.entry.empty()) Finish(worker, worker->task->last.result, done);
  }
}

void Pool::Finish(Worker* worker, Result result, std::vector<Done>* done) {
  done->push_back({worker->task->name, std::move(result), MillisecondsSince(worker->task->start)});
  worker->task.reset();
}

void Pool::PushOn(Worker* worker) {
  switch (worker->stage) {
    case Stage::kWell:
      kill(-worker->process, SIGTERM);
      worker->stage = Stage::kToldToEnd;
      worker->deadline = Clock::now() + grace;
      return;
    case Stage::kToldToEnd:
      kill(-worker->process, SIGKILL);
      worker->stage = Stage::kKilled;
      worker->deadline = Clock::now() + lastGrace;
      return;
    case Stage::kKilled:  // the system does not let go of it
      return Break(worker);
  }
}

// Until the group has been killed its head is not waited for, so that the number can't become somebody else's.
void Pool::Break(Worker* worker) {
  kill(-worker->process, SIGKILL);
  worker->line = FileDescriptor();
  worker->deadline = Clock::now() + lastGrace;
}

bool Pool::IsGone(Worker* worker) {
  int status = 0;
  for (pid_t ended = 0; (ended = waitpid(-worker->process, &status, WNOHANG)) != -1;) {
    if (ended == 0) return false;
    if (ended == worker->process) worker->status = status;
  }
  return true;
}

void Pool::LayToRest(Worker* worker, std::vector<Done>* done) const {
  std::error_code ignored;
  std::filesystem::remove_all(worker->scratch, ignored);
  RemovePreviews(worker->process);
  if (!worker->task) return;
  const Report& last = worker->task->last;
  if (!last.making.entry.empty()) RemoveHalfMade(worker->task->path, last.making);
  if (isAbandoned_) return;
  Result result = last.result;
  result.Fail("", WhyEnded(worker->stage != Stage::kWell, worker->status));
  Finish(worker, std::move(result), done);
}

void Pool::Abandon() {
  isAbandoned_ = true;
  for (Worker& worker : workers_) {
    if (worker.line.IsOpen() && worker.stage == Stage::kWell) worker.deadline = Clock::now();
  }
}

}  // namespace tavithumb::apps::command
