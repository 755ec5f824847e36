// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "command/batch/filter.h"
#include "system/folder.h"
#include "thumbs/reasons.h"
#include "thumbs/store_size.h"

namespace tavithumb::apps::command {

struct RemovalStyle {
  bool isDryRun = false;  // only report what would be removed
  bool json = false;
  bool isQuiet = false;                // only problems are printed, except in JSON
  Filter filter = {};                  // sources that are left alone
  std::optional<StoreSize> keep = {};  // of the store; more is removed, too
};

// Removes files and folders, and reports each as a line or a JSON object.
class Remover {
 public:
  explicit Remover(const RemovalStyle& style);

  // Removes the file with the status `record`. True if it was removed, or would be.
  bool RemoveFile(const Folder& folder, const std::string& name, const struct stat& record, const std::string& reason);

  // Removes a folder if it is empty. True if it was removed, or would be.
  bool RemoveFolder(const Folder& parent, const std::string& name);

  void Report(const std::string& path, const Problem& problem);

  // The totals as text, for a process that has removed something on behalf of this one, whose totals they replace.
  std::string Totals() const;
  void SetTotals(const std::string& totals);

  // From where the program was started: a process of root's is elsewhere.
  std::string Absolute(const std::string& path) const;

  // Reports the totals. True if there was no problem.
  bool Finish() const;

 private:
  bool IsRemoved(const Folder& folder, const std::string& name, int flags);
  bool WasReported(const struct stat& record);
  void ReportRemoval(const std::string& path, const std::string& reason, std::uint64_t bytes) const;

  RemovalStyle style_;
  std::string start_;                           // the working directory, which a process of root's leaves
  std::set<std::pair<dev_t, ino_t>> reported_;  // in a dry run, which may find a file again
  std::uint64_t files_ = 0;
  std::uint64_t bytes_ = 0;
  bool hasProblems_ = false;
};

}  // namespace tavithumb::apps::command
