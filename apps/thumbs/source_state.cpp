// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/source_state.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace tavithumb::apps {

// Opened for its place alone: to open a device or a pipe for reading does something.
Source::Source(int folder, const std::string& name) : place_(openat(folder, name.c_str(), O_PATH | O_CLOEXEC)) {
  if (place_.IsOpen()) {
    fstat(place_.Number(), &record_);
  } else if (errno == ENOENT) {
    struct stat link = {};
    isGone_ = fstatat(folder, name.c_str(), &link, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
  }
}

State Source::StateOf(const struct stat& thumbnail) const {
  if (isGone_) return State::kSourceIsGone;
  if (!S_ISREG(record_.st_mode)) return State::kUnknown;
  return record_.st_mtime <= thumbnail.st_mtime ? State::kUpToDate : State::kStale;
}

bool Source::LockOut() {
  if (!S_ISREG(record_.st_mode)) return true;
  const std::string path = "/proc/self/fd/" + std::to_string(place_.Number());
  lock_ = FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return flock(lock_.Number(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

}  // namespace tavithumb::apps
