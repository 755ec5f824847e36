// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/worker.h"

#include <fcntl.h>
#include <malloc.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <tuple>

#include "system/channel.h"
#include "system/file_descriptor.h"
#include "web/connection.h"

namespace tavithumb::apps::web {
namespace {

constexpr unsigned mostRequests = 1000;
constexpr std::size_t mostMemory = 16 * 1048576;  // bytes that may be lost

// What must be the same after each request.
class Surroundings {
 public:
  Surroundings() : ids_(Ids()), nextDescriptor_(NextDescriptor()), memory_(Memory()) {}

  bool AreUnchanged() const {
    return ids_ == Ids() && nextDescriptor_ == NextDescriptor() && !HasChildren() && Memory() < memory_ + mostMemory &&
           std::ferror(stdout) == 0 && __fpending(stdout) == 0;
  }

 private:
  static std::tuple<uid_t, uid_t, gid_t, gid_t> Ids() { return {getuid(), geteuid(), getgid(), getegid()}; }

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

  std::tuple<uid_t, uid_t, gid_t, gid_t> ids_;
  int nextDescriptor_;
  std::size_t memory_;
};

void UseAsStandard(int descriptor) {
  dup2(descriptor, STDIN_FILENO);
  dup2(descriptor, STDOUT_FILENO);
}

void Tell(int channel, Progress progress) {
  send(channel, &progress, sizeof progress, MSG_NOSIGNAL);
}

void AnswerOne(FileDescriptor connection, const Turn& turn, const std::function<void(const Turn&)>& answer) {
  UseAsStandard(connection.Number());
  connection = FileDescriptor();
  answer(turn);
  turn.state->hasAnswered = true;
  static_cast<void>(std::fflush(stdout));
  EndResponse(STDOUT_FILENO);
}

}  // namespace

void RunWorkerLoop(int channel, RequestState* state, const std::function<void(const Turn&)>& answer) {
  const FileDescriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
  const Surroundings before;
  const Turn turn = {state, [channel] { Tell(channel, Progress::kSending); }};
  for (unsigned answered = 1;; ++answered) {
    FileDescriptor connection = ReceiveDescriptor(channel);
    if (!connection.IsOpen()) return;
    AnswerOne(std::move(connection), turn, answer);
    UseAsStandard(nowhere.Number());
    const bool isLast = answered == mostRequests || state->isWorkersLast || !before.AreUnchanged();
    Tell(channel, isLast ? Progress::kLast : Progress::kDone);
    if (isLast) return;
  }
}

}  // namespace tavithumb::apps::web
