// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <string>

#include "common/file_descriptor.h"
#include "web/roots.h"

namespace tavithumb::apps::web {

// While it lives, no other process of this program makes a thumbnail of the source: all sizes of a source are made
// under the same temporary name. Waits for its turn. Where the volume knows no locks it is none.
class SourceLock {
 public:
  explicit SourceLock(const Found& source)
      : file_(open(("/proc/self/fd/" + std::to_string(source.descriptor.Number())).c_str(), O_RDONLY | O_CLOEXEC)) {
    while (flock(file_.Number(), LOCK_EX) == -1 && errno == EINTR) {
    }
  }

 private:
  FileDescriptor file_;
};

}  // namespace tavithumb::apps::web
