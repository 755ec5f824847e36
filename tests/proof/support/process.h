// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "temp_dir.h"

// A sanitizer makes system calls of its own, and uses memory and stack of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PROOF_IS_SANITIZED 1
#else
#define PROOF_IS_SANITIZED 0
#endif

// What proofs read about the process that they run in.
namespace tavithumb::proof {

inline void Require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

// One more than there are: counting opens one.
inline std::size_t OpenDescriptors() {
  return test::Names("/proc/self/fd").size();
}

// In any state, running or waiting to be reaped.
inline bool HasChildren() {
  return !(waitpid(-1, nullptr, WNOHANG | __WALL) == -1 && errno == ECHILD);
}

// Points standard descriptors to a file.
inline void Redirect(std::initializer_list<int> standard, const std::string& path) {
  const int opened = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  for (const int descriptor : standard) dup2(opened, descriptor);
  close(opened);
}

inline void BeSilent() {
  Redirect({STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}, "/dev/null");
}

}  // namespace tavithumb::proof
