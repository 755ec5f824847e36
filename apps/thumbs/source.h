// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <string>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// How old a thumbnail is compared with its source; unknown if the source is not a regular file or can't be accessed.
enum class Freshness { kUpToDate, kStale, kSourceIsGone, kUnknown };

// The source of stored thumbnails, held open so that it stays the same file.
class Source {
 public:
  // `name` is relative to the open folder, or absolute with AT_FDCWD. Follows links, like the library.
  Source(int folder, const std::string& name);

  // Whether the name does not exist, not even as a dangling link.
  bool IsGone() const { return isGone_; }

  Freshness FreshnessOf(const struct stat& thumbnail) const;

  // Keeps other processes from making thumbnails of this source during the object's lifetime. False if one of them is
  // making one now.
  bool TryLock();

 private:
  FileDescriptor file_;
  FileDescriptor lock_;
  struct stat record_ = {};
  bool isGone_ = false;
};

}  // namespace tavithumb::apps
