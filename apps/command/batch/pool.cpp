// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/pool.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "command/batch/worker.h"
#include "command/output.h"
#include "system/become.h"
#include "system/channel.h"
#include "system/paths.h"
#include "thumbs/as_owner.h"
#include "thumbs/temporary_files.h"

namespace tavithumb::apps::command {
namespace {

constexpr std::chrono::minutes taskTimeout(5);

Problem ProblemOf(const EndedChild& worker) {
  using Kind = Problem::Kind;
  if (worker.wasLate) return {Kind::kNoTime, "it took longer than 5 minutes", "check that it opens in another program"};
  if (WIFSIGNALED(worker.status) && WTERMSIG(worker.status) == SIGKILL) {
    return {Kind::kNoMemory, "the process working on it was killed", "try again when more memory is free"};
  }
  const char* const signal = WIFSIGNALED(worker.status) ? sigdescr_np(WTERMSIG(worker.status)) : nullptr;
  const std::string how = signal == nullptr ? "" : std::string(" (") + signal + ")";
  return {Kind::kDamaged, "the decoder crashed on this file" + how, "get a fresh copy of it"};
}

// Root's TMPDIR may be closed to others.
std::string MakeScratchFolderFor(uid_t user) {
  const std::string parent = user == 0 ? std::filesystem::temp_directory_path() : "/tmp";
  std::string folder = MakeScratchFolder(AbsolutePath(JoinPath(parent, "tavithumb-make.XXXXXX")));
  if (user == 0 || lchown(folder.c_str(), user, static_cast<gid_t>(-1)) == 0) return folder;
  const int reason = errno;
  rmdir(folder.c_str());
  throw std::system_error(reason, std::generic_category(), folder);
}

}  // namespace

Pool::Pool(std::size_t maximum, Order order) : isRoots_(IsRoot()), maximum_(maximum), order_(std::move(order)) {}

Pool::~Pool() {
  supervisor_.StopAll();
  while (!workers_.empty()) {
    supervisor_.Wait();
    Collect();
  }
}

std::size_t Pool::Running() const {
  return static_cast<std::size_t>(
      std::count_if(workers_.begin(), workers_.end(), [](const Worker& worker) { return worker.task.has_value(); }));
}

bool Pool::Dispatch(const std::string& name) {
  const std::string path = AbsolutePath(name);
  const uid_t user = isRoots_ ? OwnerFor(path) : 0;
  while (Worker* const worker = FindIdle(user)) {
    if (send(worker->channel.Number(), path.c_str(), path.size() + 1, MSG_NOSIGNAL) != -1) {
      const Clock::time_point now = Clock::now();
      worker->task = Task{name, path, now, {}};
      supervisor_.SetDeadline(worker->process, now + taskTimeout);
      return true;
    }
    worker->channel = FileDescriptor();  // it was killed while it was idle
  }
  return false;
}

Pool::Worker* Pool::FindIdle(uid_t user) {
  const auto idle = std::find_if(workers_.begin(), workers_.end(), [user](const Worker& worker) {
    return worker.channel.IsOpen() && !worker.task && worker.user == user;
  });
  return idle != workers_.end() ? &*idle : StartUnlessFull(user);
}

// Continues with fewer workers if the system refuses to start more.
Pool::Worker* Pool::StartUnlessFull(uid_t user) {
  if (workers_.size() >= maximum_) {
    MakeRoom();
    return nullptr;
  }
  try {
    workers_.push_back(StartWorker(user));
    return &workers_.back();
  } catch (const std::system_error&) {
    if (workers_.empty()) throw;
    maximum_ = workers_.size();
    return nullptr;
  }
}

// Has an idle worker exit, unless one is about to.
void Pool::MakeRoom() {
  const auto isIdle = [](const Worker& worker) { return !worker.task; };
  const auto exits = [](const Worker& worker) { return !worker.task && !worker.channel.IsOpen(); };
  if (std::any_of(workers_.begin(), workers_.end(), exits)) return;
  const auto idle = std::find_if(workers_.begin(), workers_.end(), isIdle);
  if (idle != workers_.end()) idle->channel = FileDescriptor();
}

Pool::Worker Pool::StartWorker(uid_t user) {
  auto [ours, theirs] = OpenChannel();
  Worker worker;
  worker.user = user;
  worker.channel = std::move(ours);
  worker.scratch = MakeScratchFolderFor(user);
  ChildProcess child;
  child.channel = theirs.Number();
  child.work = [&] { RunWorkerLoop({child.channel, worker.scratch, isRoots_, user}, order_); };
  try {
    worker.process = supervisor_.Start(child);
  } catch (const std::system_error&) {
    rmdir(worker.scratch.c_str());
    throw;
  }
  return worker;
}

void Pool::AddTo(std::vector<pollfd>* descriptors) const {
  descriptors->push_back({supervisor_.Descriptor(), POLLIN, 0});
  for (const Worker& worker : workers_) {
    if (worker.channel.IsOpen()) descriptors->push_back({worker.channel.Number(), POLLIN, 0});
  }
}

// A final report counts, even if it came late.
std::vector<Done> Pool::Collect() {
  std::vector<Done> done;
  for (Worker& worker : workers_) Receive(&worker, &done);
  // Cleaning up may take the notice of another worker's end.
  for (auto ended = supervisor_.Collect(); !ended.empty(); ended = supervisor_.Collect()) {
    for (const EndedChild& worker : ended) CleanUp(worker, &done);
  }
  return done;
}

void Pool::Receive(Worker* worker, std::vector<Done>* done) {
  std::array<char, longestMessage> message;
  while (worker->channel.IsOpen()) {
    const ssize_t size = recv(worker->channel.Number(), message.data(), message.size(), MSG_DONTWAIT);
    if (size == -1 && (errno == EAGAIN || errno == EINTR)) return;
    std::optional<Report> report;
    if (size > 0 && worker->task) report = ParseReport({message.data(), static_cast<std::size_t>(size)});
    if (!report) {
      worker->channel = FileDescriptor();
      return;
    }
    worker->task->last = *std::move(report);
    if (worker->task->last.making.entry.empty()) Finish(worker, worker->task->last.result, done);
  }
}

void Pool::Finish(Worker* worker, Result result, std::vector<Done>* done) {
  done->push_back({worker->task->name, std::move(result), MillisecondsSince(worker->task->start)});
  worker->task.reset();
  if (!supervisor_.SetDeadline(worker->process, noDeadline)) worker->channel = FileDescriptor();
}

void Pool::CleanUp(const EndedChild& ended, std::vector<Done>* done) {
  const auto worker = std::find_if(workers_.begin(), workers_.end(),
                                   [&ended](const Worker& other) { return other.process == ended.process; });
  Receive(&*worker, done);  // what it sent before it exited
  std::error_code ignored;
  std::filesystem::remove_all(worker->scratch, ignored);
  RemovePreviews(worker->process);
  if (worker->task) FinishEnded(&*worker, ended, done);
  workers_.erase(worker);
}

void Pool::FinishEnded(Worker* worker, const EndedChild& ended, std::vector<Done>* done) {
  if (!worker->task->last.making.entry.empty()) RemoveHalfMadeOf(*worker);
  if (ended.wasStopped) return;
  Result result = worker->task->last.result;
  result.Fail("", ProblemOf(ended));
  Finish(worker, std::move(result), done);
}

// Like the worker, with the rights of its user.
void Pool::RemoveHalfMadeOf(const Worker& worker) const {
  const std::string& path = worker.task->path;
  const Making& making = worker.task->last.making;
  if (!isRoots_) return RemoveHalfMade(path, making);
  ChildProcess child;
  child.work = [&] {
    std::string inside;
    if (!WhyNotBecome(worker.user) && !WhyNotEnter(path, &inside)) RemoveHalfMade(inside, making);
  };
  Supervisor::Run(child, noDeadline);
}

}  // namespace tavithumb::apps::command
