// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <string>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// How a thumbnail stands to its source; unknown where that is no regular file, or out of reach.
enum class State { kUpToDate, kStale, kSourceIsGone, kUnknown };

// A file as it was found, which thumbnails are stored for.
class Source {
 public:
  // `name` is looked up from the open folder, AT_FDCWD for a whole path. Links are followed, as the library does.
  Source(int folder, const std::string& name);

  // There is nothing of that name, not even a link that leads nowhere.
  bool IsGone() const { return isGone_; }

  State StateOf(const struct stat& thumbnail) const;

  // False when some process makes a thumbnail of it just now; otherwise none begins to as long as this lives.
  bool LockOut();

 private:
  FileDescriptor place_;
  FileDescriptor lock_;
  struct stat record_ = {};
  bool isGone_ = false;
};

}  // namespace tavithumb::apps
