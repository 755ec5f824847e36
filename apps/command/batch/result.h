// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// A size of which there is no thumbnail, or with an empty size the whole file.
struct Failure {
  std::string size;
  std::string reason;
  std::string remedy;
};

// What has come of one file. Every size that was asked for is in one of the lists, but for those after which the file
// as a whole failed, and those that were not wanted because they are missing.
struct Result {
  std::vector<std::string> made;
  std::vector<std::string> found;
  std::vector<std::string> notNeeded;  // the source itself serves
  std::vector<Failure> failures;
  std::uint64_t bytes = 0;  // of what was made

  void Fail(const std::string& size, const Problem& problem) {
    failures.push_back({size, problem.reason, problem.remedy});
  }
};

// What is told between processes.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Failure, size, reason, remedy)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Result, made, found, notNeeded, failures, bytes)

// The result as one JSON line, for those who read standard output.
std::string JsonResult(const std::string& path, const Result& result, double milliseconds);

}  // namespace tavithumb::apps::command
