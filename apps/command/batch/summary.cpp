// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/summary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <vector>

#include "system/json_text.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

using Reason = std::pair<std::string, std::size_t>;

// The most frequent first.
std::vector<Reason> Sorted(const std::map<std::string, std::size_t>& reasons) {
  std::vector<Reason> sorted(reasons.begin(), reasons.end());
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Reason& one, const Reason& other) { return one.second > other.second; });
  return sorted;
}

std::string RowText(std::string label, std::size_t count, const std::string& what) {
  const std::string number = std::to_string(count);
  label.resize(14, ' ');
  return label + std::string(number.size() < 10 ? 10 - number.size() : 0, ' ') + number + "  " + what + "\n";
}

nlohmann::ordered_json JsonCounts(const std::map<std::string, std::size_t>& reasons) {
  nlohmann::ordered_json counts = nlohmann::ordered_json::array();
  for (const auto& [reason, count] : Sorted(reasons)) counts.push_back({{"reason", reason}, {"files", count}});
  return counts;
}

}  // namespace

Summary::Summary(Now now) : now_(std::move(now)), start_(now_()) {}

void Summary::Add(const Result& result) {
  ++files_;
  filesWithMade_ += result.made.empty() ? 0 : 1;
  failed_ += result.failures.empty() ? 0 : 1;
  made_ += result.made.size();
  found_ += result.found.size();
  notNeeded_ += result.notNeeded.size();
  bytes_ += result.bytes;
  if (!result.byLibrary.empty()) ++byLibrary_[result.byLibrary];
  std::set<std::string> reasons;
  for (const Failure& failure : result.failures) reasons.insert(failure.reason);
  for (const std::string& reason : reasons) ++reasons_[reason];
}

double Summary::Seconds() const {
  return std::round(std::chrono::duration<double, std::milli>(now_() - start_).count()) / 1000;
}

std::string Summary::AsText(bool isDryRun) const {
  std::array<char, 32> seconds = {};
  static_cast<void>(std::snprintf(seconds.data(), seconds.size(), "%.1f", Seconds()));
  std::string text = RowText("files", files_, std::string("in ") + seconds.data() + " seconds");
  text += isDryRun ? RowText("would be made", made_, "thumbnails")
                   : RowText("made", made_, "thumbnails, " + ByteText(bytes_));
  text += RowText("already there", found_, "thumbnails");
  text += RowText("not needed", notNeeded_, "thumbnails: the source is served unchanged");
  text += RowText("failed", failed_, "files");
  for (const auto& [reason, count] : Sorted(reasons_)) text += RowText("", count, reason);
  return text;
}

std::string Summary::AsJson(bool isInterrupted) const {
  nlohmann::ordered_json object = {{"summary", true},
                                   {"files", files_},
                                   {"made", made_},
                                   {"found", found_},
                                   {"not_needed", notNeeded_},
                                   {"failed", failed_},
                                   {"bytes", bytes_},
                                   {"seconds", Seconds()},
                                   {"interrupted", isInterrupted},
                                   {"by_library", JsonCounts(byLibrary_)},
                                   {"reasons", JsonCounts(reasons_)}};
  return JsonLine(object);
}

}  // namespace tavithumb::apps::command
