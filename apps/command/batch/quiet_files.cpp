// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/quiet_files.h"

#include <algorithm>

namespace tavithumb::apps::command {
QuietFiles::QuietFiles(Now now) : now_(std::move(now)) {}

void QuietFiles::Add(const std::string& path, Clock::duration ago) {
  const Clock::time_point due = now_() + quietTime - std::min<Clock::duration>(ago, quietTime);
  due_[path] = due;
  const auto isLater = [](Clock::time_point moment, const auto& entry) { return moment < entry.first; };
  queue_.insert(std::upper_bound(queue_.begin(), queue_.end(), due, isLater), {due, path});
}

std::optional<std::string> QuietFiles::Take() {
  while (!queue_.empty() && queue_.front().first <= now_()) {
    const auto [due, path] = std::move(queue_.front());
    queue_.pop_front();
    const auto file = due_.find(path);
    if (file == due_.end() || file->second != due) continue;
    due_.erase(file);
    return path;
  }
  return std::nullopt;
}

}  // namespace tavithumb::apps::command
