// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <string>

#include "common/file_descriptor.h"

namespace tavithumb::apps {

// The source's file, open for locks on it. Where the volume knows no locks, nobody has one.
inline FileDescriptor OpenForLocks(const std::string& source) {
  return FileDescriptor(open(source.c_str(), O_RDONLY | O_CLOEXEC));
}

// While it lives, no other process of our programs makes a thumbnail of the source: all sizes of a source are made
// under the same temporary name.
class SourceLock {
 public:
  // Waits for its turn.
  explicit SourceLock(const std::string& source) : file_(OpenForLocks(source)) {
    while (flock(file_.Number(), LOCK_EX) == -1 && errno == EINTR) {
    }
  }

 private:
  FileDescriptor file_;
};

// Some process makes a thumbnail of the source just now. One that is made of an embedded preview is written under its
// final name, so what has been found stored may be half of it as long as this holds.
inline bool IsBeingMade(const std::string& source) {
  const FileDescriptor file = OpenForLocks(source);
  return flock(file.Number(), LOCK_SH | LOCK_NB) == -1 && errno == EWOULDBLOCK;
}

}  // namespace tavithumb::apps
