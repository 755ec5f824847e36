// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <csignal>
#include <initializer_list>
#include <optional>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// Blocks signals and queues them for reading during its lifetime. Signals that were ignored stay ignored.
class Signals {
 public:
  // Throws std::system_error.
  explicit Signals(std::initializer_list<int> numbers);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  // Readable when a signal is pending.
  int Descriptor() const { return file_.Number(); }
  // Reads the number of a pending signal; nothing if there is none.
  std::optional<int> Receive() const;
  // They stay blocked after its lifetime too: for a process that ends because of one, which may come twice.
  void StayBlocked() { stayBlocked_ = true; }

 private:
  sigset_t before_;
  FileDescriptor file_;
  bool stayBlocked_ = false;
};

// For a forked child: unblocks all signals, and restores the default action of SIGTERM, SIGINT and SIGCHLD.
void RestoreSignals();

}  // namespace tavithumb::apps
