// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <string>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// Opens the source's file for locking. On a volume without locks, locking does nothing.
inline FileDescriptor OpenForLocks(const std::string& source) {
  return FileDescriptor(open(source.c_str(), O_RDONLY | O_CLOEXEC));
}

// Waits for its turn.
inline void Lock(const FileDescriptor& file) {
  while (flock(file.Number(), LOCK_EX) == -1 && errno == EINTR) {
  }
}

// During its lifetime, no other process of our programs makes a thumbnail of the source: all sizes of a source are made
// under the same temporary name.
class SourceLock {
 public:
  // Waits for its turn.
  explicit SourceLock(const std::string& source) : file_(OpenForLocks(source)) { Lock(file_); }

 private:
  FileDescriptor file_;
};

// During its lifetime, no other process of our programs makes an animated thumbnail: animations of the same name made
// in the same second share a temporary file for their frames, even if their sources are in different folders.
class AnimationLock {
 public:
  // Waits for its turn.
  AnimationLock() : folder_(open("/var/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) { Lock(folder_); }

 private:
  FileDescriptor folder_;
};

// Whether another process is making a thumbnail of the source now. A thumbnail made from an embedded preview is written
// under its final name, so a stored one may be incomplete while this is true.
inline bool IsBeingMade(const std::string& source) {
  const FileDescriptor file = OpenForLocks(source);
  return flock(file.Number(), LOCK_SH | LOCK_NB) == -1 && errno == EWOULDBLOCK;
}

}  // namespace tavithumb::apps
