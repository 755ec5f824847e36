// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/processor_use.h"

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <utility>

namespace tavithumb::apps {
namespace {

constexpr std::chrono::seconds interval(1);

// Those of processes with the normal priority or a higher one, in their own code, on all processors.
std::optional<std::uint64_t> TicksOfOthers(const std::string& statistics) {
  std::istringstream stream(statistics);
  std::string label;
  std::uint64_t ticks = 0;
  if (stream >> label >> ticks && label == "cpu") return ticks;
  return std::nullopt;
}

}  // namespace

ProcessorUse::ProcessorUse(std::function<std::string()> read, Now now)
    : read_(std::move(read)), now_(std::move(now)), last_(now_()), next_(last_) {}

std::string ProcessorUse::ReadSystemStatistics() {
  std::ifstream file("/proc/stat");
  std::string line;
  std::getline(file, line);
  return line;
}

bool ProcessorUse::IsUsedByOthers() {
  const Clock::time_point now = now_();
  if (now < next_) return isUsed_;
  const std::optional<std::uint64_t> ticks = TicksOfOthers(read_());
  const double seconds = std::chrono::duration<double>(now - last_).count();
  const auto perSecond = static_cast<double>(sysconf(_SC_CLK_TCK));
  isUsed_ = !ticks || !before_ || static_cast<double>(*ticks - *before_) > seconds * perSecond / 10;
  before_ = ticks;
  last_ = now;
  next_ = now + interval;
  return isUsed_;
}

}  // namespace tavithumb::apps
