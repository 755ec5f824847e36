// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "system/folder.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

struct RemovalStyle {
  bool isDryRun = false;  // tells what would be removed, and removes nothing
  bool json = false;
};

// Removes what it is given and tells so, one line or object for each thing.
class Remover {
 public:
  explicit Remover(const RemovalStyle& style) : style_(style) {}

  // A file, which `record` tells of. True when it is gone, or would be.
  bool RemoveFile(const Folder& folder, const std::string& name, const struct stat& record, const std::string& reason);

  // A folder that nothing is left in.
  bool RemoveFolder(const Folder& parent, const std::string& name);

  void Report(const std::string& path, const Problem& problem);

  // Tells how much it was. True when there was no problem.
  bool Finish() const;

 private:
  bool IsRemoved(const Folder& folder, const std::string& name, int flags);
  bool IsToldBefore(const struct stat& record);
  void Tell(const std::string& path, const std::string& reason, std::uint64_t bytes) const;

  RemovalStyle style_;
  std::set<std::pair<dev_t, ino_t>> told_;  // in a dry run, where the same file may be met again
  std::uint64_t files_ = 0;
  std::uint64_t bytes_ = 0;
  bool isAllWell_ = true;
};

}  // namespace tavithumb::apps::command
