// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "system/clock.h"

namespace tavithumb::apps::command {

// Files that have changed, until each has been quiet for a time: many programs write a file in pieces.
class QuietFiles {
 public:
  static constexpr std::chrono::seconds quietTime{2};

  explicit QuietFiles(Now now = Clock::now);

  // The file has changed just now, or `ago`.
  void Add(const std::string& path, Clock::duration ago = {});
  // Removes and returns a file that has been quiet for long enough, if any; those that became so first come first.
  std::optional<std::string> Take();

  bool IsEmpty() const { return due_.empty(); }
  std::size_t Count() const { return due_.size(); }
  Clock::time_point NextEvent() const { return queue_.empty() ? noDeadline : queue_.front().first; }

 private:
  Now now_;
  std::unordered_map<std::string, Clock::time_point> due_;
  std::deque<std::pair<Clock::time_point, std::string>> queue_;  // by time; also of files that have changed since
};

}  // namespace tavithumb::apps::command
