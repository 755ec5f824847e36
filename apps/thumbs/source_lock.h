// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <string>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// The source's file, open for locks on it. Where the volume knows no locks, nobody has one.
inline FileDescriptor OpenForLocks(const std::string& source) {
  return FileDescriptor(open(source.c_str(), O_RDONLY | O_CLOEXEC));
}

// Waits for its turn.
inline void Lock(const FileDescriptor& file) {
  while (flock(file.Number(), LOCK_EX) == -1 && errno == EINTR) {
  }
}

// While it lives, no other process of our programs makes a thumbnail of the source: all sizes of a source are made
// under the same temporary name.
class SourceLock {
 public:
  // Waits for its turn.
  explicit SourceLock(const std::string& source) : file_(OpenForLocks(source)) { Lock(file_); }

 private:
  FileDescriptor file_;
};

// While it lives, no other process of our programs makes an animated thumbnail: the frames of all animations of one
// name that are made in the same second lie in the same file meanwhile, whatever folders their sources are in.
class AnimationLock {
 public:
  // Waits for its turn.
  AnimationLock() : folder_(open("/var/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) { Lock(folder_); }

 private:
  FileDescriptor folder_;
};

// Some process makes a thumbnail of the source just now. One that is made of an embedded preview is written under its
// final name, so what has been found stored may be half of it as long as this holds.
inline bool IsBeingMade(const std::string& source) {
  const FileDescriptor file = OpenForLocks(source);
  return flock(file.Number(), LOCK_SH | LOCK_NB) == -1 && errno == EWOULDBLOCK;
}

}  // namespace tavithumb::apps
