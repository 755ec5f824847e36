// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tavithumb::apps {
namespace {

bool IsIgnored(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

Signals::Signals() {
  sigset_t taken;
  sigemptyset(&taken);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
    if (!IsIgnored(number)) sigaddset(&taken, number);
  }
  pthread_sigmask(SIG_BLOCK, &taken, &before_);
  file_ = FileDescriptor(signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!file_.IsOpen()) throw std::system_error(errno, std::generic_category(), "signals");
}

Signals::~Signals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<int> Signals::Take() const {
  signalfd_siginfo info = {};
  if (read(file_.Number(), &info, sizeof info) != sizeof info) return std::nullopt;
  return static_cast<int>(info.ssi_signo);
}

}  // namespace tavithumb::apps
