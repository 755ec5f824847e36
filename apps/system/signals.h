// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <csignal>
#include <optional>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// The signals that a run takes as messages, as long as this lives: those that end it, and that the terminal has
// changed its size. What the caller has had ignored stays so.
class Signals {
 public:
  // Throws std::system_error.
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  int Descriptor() const { return file_.Number(); }
  // The number of one that has come.
  std::optional<int> Take() const;

 private:
  sigset_t before_;
  FileDescriptor file_;
};

}  // namespace tavithumb::apps
