// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/summary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "command/batch/estimate.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

using Count = std::pair<std::string, std::size_t>;

constexpr std::size_t mostNames = 3;
constexpr std::size_t mostKinds = 5;

// The most frequent first.
std::vector<Count> Sorted(const std::map<std::string, std::size_t>& counts) {
  std::vector<Count> sorted(counts.begin(), counts.end());
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Count& one, const Count& other) { return one.second > other.second; });
  return sorted;
}

std::string RowText(std::string label, const std::string& figure, const std::string& what) {
  label.resize(14, ' ');
  return label + std::string(figure.size() < 10 ? 10 - figure.size() : 0, ' ') + figure + "  " + what + "\n";
}

std::string RowText(const std::string& label, std::size_t count, const std::string& what) {
  return RowText(label, std::to_string(count), what);
}

std::string Fixed(double number) {
  std::array<char, 32> text = {};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.1f", number));
  return text.data();
}

nlohmann::ordered_json JsonCounts(const char* key, const std::map<std::string, std::size_t>& counts) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const auto& [what, count] : Sorted(counts)) list.push_back({{key, what}, {"files", count}});
  return list;
}

// "" if none were.
std::string PassedOverText(const std::map<std::string, std::size_t>& counts) {
  std::vector<std::string> kinds;
  std::size_t files = 0, named = 0;
  for (const auto& [kind, count] : Sorted(counts)) {
    files += count;
    if (kinds.size() == mostKinds) continue;
    named += count;
    kinds.push_back(std::to_string(count) + " " + (kind.empty() ? "without extension" : Printable(kind)));
  }
  if (files > named) kinds.push_back(std::to_string(files - named) + " others");
  return files == 0 ? "" : RowText("passed over", files, "files: " + Join(kinds, ", "));
}

std::string NamesText(const std::vector<std::string>& names, std::size_t count) {
  std::vector<std::string> printable;
  printable.reserve(names.size());
  for (const std::string& name : names) printable.push_back(Printable(name));
  const std::string more = count > names.size() ? " and " + std::to_string(count - names.size()) + " more" : "";
  return Join(printable, ", ") + more;
}

}  // namespace

Summary::Summary(Now now) : now_(std::move(now)), start_(now_()) {}

void Summary::Add(const std::string& name, const Result& result, double milliseconds) {
  ++files_;
  made_ += result.made.size();
  found_ += result.found.size();
  notNeeded_ += result.notNeeded.size();
  bytes_ += result.bytes;
  if (!result.byLibrary.empty()) ++byLibrary_[result.byLibrary];
  if (!result.failures.empty()) CountFailures(name, result);
  if (!result.made.empty()) CountTime(name, result, milliseconds);
}

void Summary::CountFailures(const std::string& name, const Result& result) {
  ++failed_;
  std::set<std::string> reasons;
  for (const Failure& failure : result.failures) reasons.insert(failure.reason);
  for (const std::string& reason : reasons) {
    FailedFiles& failed = reasons_[reason];
    ++failed.count;
    if (failed.names.size() < mostNames) failed.names.push_back(name);
  }
}

void Summary::CountTime(const std::string& name, const Result& result, double milliseconds) {
  ++filesWithMade_;
  const double expected = ExpectedMilliseconds(name);
  expected_ += expected;
  if (result.sampleMilliseconds > 0) {
    sampled_ += expected;
    samples_ += result.sampleMilliseconds;
  }
  const auto isSlower = [](const SlowFile& one, const SlowFile& other) {
    return one.milliseconds > other.milliseconds;
  };
  const SlowFile file = {milliseconds, name};
  slowest_.insert(std::upper_bound(slowest_.begin(), slowest_.end(), file, isSlower), file);
  if (slowest_.size() > mostNames) slowest_.pop_back();
}

double Summary::Seconds() const {
  return std::round(std::chrono::duration<double, std::milli>(now_() - start_).count()) / 1000;
}

// By the speed of this machine as far as the samples show it.
double Summary::ExpectedSeconds(const RunFacts& run) const {
  const double factor = sampled_ > 0 ? samples_ / sampled_ : 1;
  return std::round(expected_ * factor / static_cast<double>(run.jobs)) / 1000;
}

std::map<std::string, std::size_t> Summary::CountsOfReasons() const {
  std::map<std::string, std::size_t> counts;
  for (const auto& [reason, failed] : reasons_) counts[reason] = failed.count;
  return counts;
}

std::string Summary::MadeText(const RunFacts& run) const {
  if (!run.isDryRun) return RowText("made", made_, "thumbnails, " + ByteText(bytes_));
  return RowText("would be made", made_,
                 "thumbnails, about " + ByteText(bytes_) + ", in about " + DurationText(ExpectedSeconds(run)));
}

std::string Summary::AsText(const RunFacts& run) const {
  std::string text = RowText("files", files_, "in " + Fixed(Seconds()) + " seconds") + MadeText(run);
  text += RowText("already there", found_, "thumbnails");
  text += RowText("not needed", notNeeded_, "thumbnails: the source is served unchanged");
  text += PassedOverText(run.passedOver);
  text += RowText("failed", failed_, "files");
  for (const auto& [reason, count] : Sorted(CountsOfReasons())) {
    text += RowText("", count, reason + ": " + NamesText(reasons_.at(reason).names, count));
  }
  if (run.failedBefore > 0) {
    text += RowText("failed before", run.failedBefore, "files, unchanged since: --retry tries them again");
  }
  if (run.isDryRun) return text;
  for (const SlowFile& file : slowest_) {
    text += RowText(&file == &slowest_.front() ? "slowest" : "", Fixed(file.milliseconds / 1000) + " s",
                    Printable(file.name));
  }
  return text;
}

std::string Summary::AsJson(const RunFacts& run) const {
  nlohmann::ordered_json object = {{"summary", true},
                                   {"files", files_},
                                   {"made", made_},
                                   {"found", found_},
                                   {"not_needed", notNeeded_},
                                   {"failed", failed_},
                                   {"failed_before", run.failedBefore},
                                   {"bytes", bytes_},
                                   {"seconds", Seconds()},
                                   {"expected_seconds", nullptr},
                                   {"interrupted", run.isInterrupted},
                                   {"by_library", JsonCounts("reason", byLibrary_)},
                                   {"reasons", JsonCounts("reason", CountsOfReasons())},
                                   {"passed_over", JsonCounts("kind", run.passedOver)},
                                   {"slowest", nlohmann::ordered_json::array()}};
  if (run.isDryRun) {
    object["expected_seconds"] = ExpectedSeconds(run);
    return JsonLine(object);
  }
  for (const SlowFile& file : slowest_) {
    nlohmann::ordered_json slow;
    SetName(&slow, "source", AbsolutePath(file.name));
    slow["milliseconds"] = file.milliseconds;
    object["slowest"].push_back(slow);
  }
  return JsonLine(object);
}

}  // namespace tavithumb::apps::command
