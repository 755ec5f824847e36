// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Why a size has no thumbnail; with an empty size, why the whole file failed.
struct Failure {
  std::string size;
  std::string reason;
  std::string remedy;
  Problem::Kind kind = Problem::Kind::kDamaged;
};

// The result for one file. Each requested size is in one of the lists, except those after a failure of the whole file,
// and missing ones that the request excludes.
struct Result {
  std::vector<std::string> made;
  std::vector<std::string> found;
  std::vector<std::string> notNeeded;  // the source itself is small enough
  std::vector<Failure> failures;
  std::uint64_t bytes = 0;        // of what was made
  double sampleMilliseconds = 0;  // how long it took to make one in memory, if a dry run has
  std::string byLibrary;          // why the library's tools made them, in a word; empty if they did not

  void Fail(const std::string& size, const Problem& problem) {
    failures.push_back({size, problem.reason, problem.remedy, problem.kind});
  }
};

// The result as a line for people, which begins with the printable `name`: "a.jpg: made small, medium; found big".
std::string ResultLine(const std::string& name, const Result& result, bool isDryRun);

// The result as one line of the command's JSON output.
std::string JsonResult(const std::string& path, const Result& result, double milliseconds);

}  // namespace tavithumb::apps::command
