// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "command/batch/result.h"

namespace tavithumb::apps::command {

// What has come of all files of a run.
class Summary {
 public:
  void Add(const Result& result);

  std::size_t Files() const { return files_; }
  std::size_t FilesWithMade() const { return filesWithMade_; }
  bool HasFailures() const { return failed_ != 0; }

  // A table for people, and one JSON line. A dry run has only found out what would be made.
  std::string AsText(bool isDryRun) const;
  std::string AsJson(bool isInterrupted) const;

 private:
  double Seconds() const;

  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::size_t files_ = 0;
  std::size_t filesWithMade_ = 0;
  std::size_t failed_ = 0;  // files
  std::size_t made_ = 0;    // thumbnails, as the next two
  std::size_t found_ = 0;
  std::size_t notNeeded_ = 0;
  std::uint64_t bytes_ = 0;
  std::map<std::string, std::size_t> reasons_;  // files
};

}  // namespace tavithumb::apps::command
