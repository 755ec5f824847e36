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

Signals::Signals(std::initializer_list<int> numbers) {
  sigset_t watched;
  sigemptyset(&watched);
  for (const int number : numbers) {
    if (!IsIgnored(number)) sigaddset(&watched, number);
  }
  pthread_sigmask(SIG_BLOCK, &watched, &before_);
  file_ = FileDescriptor(signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!file_.IsOpen()) throw std::system_error(errno, std::generic_category(), "signals");
}

Signals::~Signals() {
  if (!stayBlocked_) pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<int> Signals::Receive() const {
  signalfd_siginfo info = {};
  if (read(file_.Number(), &info, sizeof info) != sizeof info) return std::nullopt;
  return static_cast<int>(info.ssi_signo);
}

void RestoreSignals() {
  for (const int number : {SIGTERM, SIGINT, SIGCHLD}) static_cast<void>(std::signal(number, SIG_DFL));
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace tavithumb::apps
