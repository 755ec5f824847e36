// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/source.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace tavithumb::apps {

namespace {

bool IsMissing(int error) {
  return error == ENOENT || error == ENOTDIR;
}

}  // namespace

// O_PATH, because opening a device or a pipe for reading has side effects.
Source::Source(int folder, const std::string& name) : file_(openat(folder, name.c_str(), O_PATH | O_CLOEXEC)) {
  if (file_.IsOpen()) {
    fstat(file_.Number(), &record_);
  } else if (IsMissing(errno)) {
    struct stat link = {};
    isGone_ = fstatat(folder, name.c_str(), &link, AT_SYMLINK_NOFOLLOW) != 0 && IsMissing(errno);
  }
}

Freshness Source::FreshnessOf(const struct stat& thumbnail) const {
  if (isGone_) return Freshness::kSourceIsGone;
  if (!S_ISREG(record_.st_mode)) return Freshness::kUnknown;
  return record_.st_mtime <= thumbnail.st_mtime ? Freshness::kUpToDate : Freshness::kStale;
}

bool Source::TryLock() {
  if (!S_ISREG(record_.st_mode)) return true;
  const std::string path = "/proc/self/fd/" + std::to_string(file_.Number());
  lock_ = FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return flock(lock_.Number(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

}  // namespace tavithumb::apps
