// SPDX-License-Identifier: GPL-3.0-or-later
#include "injector.h"

#include <poll.h>
#include <seccomp.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>

namespace tavithumb::proof {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience(60);
constexpr int kCannotRunHere = 77;

struct Shared {
  sem_t ready;
  int listener;
  volatile bool armed;
};

Shared* MapShared() {
  void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  auto* const shared = new (memory) Shared();
  sem_init(&shared->ready, 1, 0);
  return shared;
}

// In the child: from now on each of these calls waits for the parent's decision. The listener's descriptor, or -1.
int AskBeforeCalls(const std::vector<Call>& calls) {
  const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
  for (const Call& call : calls) {
    for (const char* name : call.systemCalls)
      seccomp_rule_add(filter, SCMP_ACT_NOTIFY, seccomp_syscall_resolve_name(name), 0);
  }
  return seccomp_load(filter) == 0 ? seccomp_notify_fd(filter) : -1;
}

// The parent's side while a child runs: decides on its calls.
class Supervisor {
 public:
  Supervisor(const std::vector<Call>& calls, const Fault& fault, pid_t child, const Shared* shared)
      : fault_(fault), child_(child), shared_(shared), counts_(calls.size()) {
    for (std::size_t i = 0; i < calls.size(); ++i) {
      for (const char* name : calls[i].systemCalls) kinds_[seccomp_syscall_resolve_name(name)] = i;
    }
    seccomp_notify_alloc(&request_, &response_);
    handle_ = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    listener_ = static_cast<int>(syscall(SYS_pidfd_getfd, handle_, shared->listener, 0));
  }
  ~Supervisor() {
    seccomp_notify_free(request_, response_);
    close(listener_);
    close(handle_);
  }
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  bool IsReady() const { return listener_ >= 0; }

  // False if the child did not exit in time.
  bool AnswerUntilItEnds() {
    const auto end = Clock::now() + kPatience;
    while (Clock::now() < end) {
      pollfd events[] = {{listener_, POLLIN, 0}, {handle_, POLLIN, 0}};
      poll(events, 2, 1000);
      if ((events[0].revents & POLLIN) != 0) Answer();
      if ((events[1].revents & POLLIN) != 0) return true;
    }
    return false;
  }

  const std::vector<unsigned>& Counts() const { return counts_; }

 private:
  void Answer() {
    std::memset(request_, 0, sizeof *request_);
    if (seccomp_notify_receive(listener_, request_) != 0) return;  // its caller is gone
    response_->id = request_->id;
    response_->val = 0;
    response_->error = Fails() ? -fault_.error : 0;
    response_->flags = response_->error == 0 ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    seccomp_notify_respond(listener_, response_);
  }

  bool Fails() {
    if (!shared_->armed || static_cast<pid_t>(request_->pid) != child_) return false;
    const std::size_t kind = kinds_.at(request_->data.nr);
    const unsigned count = ++counts_[kind];
    return kind == fault_.call && count >= fault_.first && count <= fault_.last;
  }

  const Fault fault_;
  const pid_t child_;
  const Shared* const shared_;
  std::map<int, std::size_t> kinds_;
  std::vector<unsigned> counts_;
  seccomp_notif* request_ = nullptr;
  seccomp_notif_resp* response_ = nullptr;
  int handle_;
  int listener_;
};

[[noreturn]] void CannotRunHere() {
  std::fprintf(stderr, "this proof needs a kernel that lets a process answer for the system calls of its children\n");
  std::exit(kCannotRunHere);
}

}  // namespace

Injector::Injector(std::vector<Call> calls) : calls_(std::move(calls)) {}

Ending Injector::Run(const Fault& fault, const std::function<void(volatile bool* armed)>& body) {
  Shared* const shared = MapShared();
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    shared->listener = AskBeforeCalls(calls_);
    sem_post(&shared->ready);
    body(&shared->armed);
    _exit(0);
  }
  while (sem_wait(&shared->ready) == -1 && errno == EINTR) {
  }
  Ending ending;
  {
    Supervisor supervisor(calls_, fault, child, shared);
    if (!supervisor.IsReady()) CannotRunHere();
    ending.inTime = supervisor.AnswerUntilItEnds();
    ending.counts = supervisor.Counts();
  }
  if (!ending.inTime) kill(child, SIGKILL);
  waitpid(child, &ending.status, 0);
  munmap(shared, sizeof *shared);
  return ending;
}

}  // namespace tavithumb::proof
