// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "command/batch/result.h"
#include "system/clock.h"

namespace tavithumb::apps::command {

// What a summary says about the run beside its files.
struct RunFacts {
  std::size_t jobs = 1;
  bool isDryRun = false;
  bool isInterrupted = false;
  std::map<std::string, std::size_t> passedOver;  // how many files of each kind, "" for no extension
  std::size_t failedBefore = 0;                   // files that were not tried again
};

// The totals of a run.
class Summary {
 public:
  // The run starts now.
  explicit Summary(Now now = Clock::now);

  // The result for the file of this name, and how long it took.
  void Add(const std::string& name, const Result& result, double milliseconds);

  std::size_t Files() const { return files_; }
  std::size_t FilesWithMade() const { return filesWithMade_; }
  bool HasFailures() const { return failed_ != 0; }

  // A table for people, and one JSON line. After a dry run, they say what would be made, in about which time.
  std::string AsText(const RunFacts& run) const;
  std::string AsJson(const RunFacts& run) const;

 private:
  struct FailedFiles {
    std::size_t count = 0;
    std::vector<std::string> names;  // of the first ones
  };
  struct SlowFile {
    double milliseconds;
    std::string name;
  };

  void CountFailures(const std::string& name, const Result& result);
  void CountTime(const std::string& name, const Result& result, double milliseconds);
  double Seconds() const;
  double ExpectedSeconds(const RunFacts& run) const;
  std::map<std::string, std::size_t> CountsOfReasons() const;
  std::string MadeText(const RunFacts& run) const;

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
  std::map<std::string, FailedFiles> reasons_;
  std::vector<SlowFile> slowest_;  // of those with thumbnails made, the slowest first
  double expected_ = 0;            // milliseconds of one core, for the files with thumbnails made
  double sampled_ = 0;             // how many of them the samples of a dry run were expected to take
  double samples_ = 0;             // and took
};

}  // namespace tavithumb::apps::command
