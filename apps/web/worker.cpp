// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/worker.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <utility>

#include "system/channel.h"
#include "system/file_descriptor.h"
#include "web/connection.h"

namespace tavithumb::apps::web {
namespace {

constexpr unsigned mostRequests = 1000;
constexpr std::chrono::milliseconds patience(100);  // before the parent hears of an answer for which nobody waits
constexpr std::size_t mostMemory = std::size_t{16} * 1048576;  // bytes that may be lost

// What must be the same after each request.
class Surroundings {
 public:
  Surroundings() : ids_(EffectiveIds()), nextDescriptor_(NextDescriptor()), memory_(Memory()) {}

  bool AreUnchanged() const {
    return ids_ == EffectiveIds() && nextDescriptor_ == NextDescriptor() && !HasChildren() &&
           Memory() < memory_ + mostMemory && std::ferror(stdout) == 0 && __fpending(stdout) == 0;
  }

 private:
  static std::pair<uid_t, gid_t> EffectiveIds() { return {geteuid(), getegid()}; }

  // A file that is left open takes this number.
  static int NextDescriptor() { return FileDescriptor(dup(STDERR_FILENO)).Number(); }

  static bool HasChildren() {
    siginfo_t info = {};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
  }

  static std::size_t Memory() {
    const struct mallinfo2 use = mallinfo2();
    return use.uordblks + use.hblkhd;
  }

  std::pair<uid_t, gid_t> ids_;
  int nextDescriptor_;
  std::size_t memory_;
};

void UseAsStandard(int descriptor) {
  dup2(descriptor, STDIN_FILENO);
  dup2(descriptor, STDOUT_FILENO);
}

void Notify(int channel) {
  send(channel, "", 1, MSG_NOSIGNAL);
}

void Await(int channel) {
  pollfd entry = {channel, POLLIN, 0};
  poll(&entry, 1, -1);
}

// Waits for a connection. False if the parent has closed the channel.
bool TakeConnection(int channel) {
  FileDescriptor connection = ReceiveDescriptor(channel);
  if (!connection.IsOpen() && errno == EAGAIN) {
    Notify(channel);
    while (!connection.IsOpen() && errno == EAGAIN) {
      Await(channel);
      connection = ReceiveDescriptor(channel);
    }
  }
  if (connection.IsOpen()) UseAsStandard(connection.Number());
  return connection.IsOpen();
}

void AnswerOne(const Turn& turn, const std::function<void(const Turn&)>& answer) {
  answer(turn);
  turn.state->hasAnswered = true;
  static_cast<void>(std::fflush(stdout));
  EndResponse(STDOUT_FILENO);
}

}  // namespace

void RunWorkerLoop(int channel, RequestState* state, const std::function<void(const Turn&)>& answer) {
  const FileDescriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
  SetReceiveTimeout(channel, patience);
  const Surroundings before;
  const Turn turn = {state, [channel, state] {
                       state->progress = Progress::kSending;
                       Notify(channel);
                     }};
  for (unsigned answered = 1;; ++answered) {
    if (!TakeConnection(channel)) return;
    AnswerOne(turn, answer);
    UseAsStandard(nowhere.Number());
    const bool isLast = answered == mostRequests || state->isWorkersLast || !before.AreUnchanged();
    state->progress = isLast ? Progress::kLast : Progress::kDone;
    if (isLast) return;
    if (state->isAwaited) Notify(channel);
  }
}

}  // namespace tavithumb::apps::web
