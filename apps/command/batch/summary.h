// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "command/batch/result.h"
#include "system/clock.h"

namespace tavithumb::apps::command {

// The totals of a run.
class Summary {
 public:
  // The run starts now.
  explicit Summary(Now now = Clock::now);

  void Add(const Result& result);

  std::size_t Files() const { return files_; }
  std::size_t FilesWithMade() const { return filesWithMade_; }
  bool HasFailures() const { return failed_ != 0; }

  // A table for people, and one JSON line. After a dry run the table says "would be made".
  std::string AsText(bool isDryRun) const;
  std::string AsJson(bool isInterrupted) const;

 private:
  double Seconds() const;

  Now now_;
  Clock::time_point start_;
  std::size_t files_ = 0;
  std::size_t filesWithMade_ = 0;
  std::size_t failed_ = 0;  // files
  std::size_t made_ = 0;    // thumbnails, like the next two
  std::size_t found_ = 0;
  std::size_t notNeeded_ = 0;
  std::uint64_t bytes_ = 0;
  std::map<std::string, std::size_t> byLibrary_;  // number of files left to the library's tools for each reason
  std::map<std::string, std::size_t> reasons_;    // number of failed files for each
};

}  // namespace tavithumb::apps::command
