// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <optional>
#include <string>

#include "maker/maker.h"
#include "system/shared_table.h"

namespace tavithumb::apps {

// What has been read from the headers of sources and of stored thumbnails, by device, inode, size and times of the
// file: a name alone says nothing, and a changed file is another one. What one of several forked processes reads, all
// of them remember. A file that was changed less than two seconds ago is not remembered, since it may change again
// within the same time stamp.
class FileMemory {
 public:
  // Throws std::system_error.
  FileMemory();

  // ReadKnownFacts(), without opening a source that is remembered.
  void ReadFacts(bool byLibrary, Thumb* job);

  // maker::Examine(), without opening a file that is remembered.
  std::optional<maker::Content> Examine(const std::string& path);

  // Whether no other process was making a thumbnail of `source` when the stored one at `path` was what it is now: see
  // IsBeingMade(). Does not open the source if that is remembered.
  bool IsComplete(const std::string& path, const std::string& source);

 private:
  SharedTable table_;
};

}  // namespace tavithumb::apps
