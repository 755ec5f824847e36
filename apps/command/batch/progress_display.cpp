// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/progress_display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "system/numbers.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

constexpr std::chrono::milliseconds redrawInterval(100);
constexpr std::chrono::seconds lineInterval(60);
// The rate is the mean of this period.
constexpr std::chrono::seconds ratePeriod(30);

constexpr char eraseToEnd[] = "\033[K";

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): there is one thread
  return value == nullptr ? "" : value;
}

bool CanRedraw() {
  const std::string kind = Variable("TERM");
  return isatty(STDERR_FILENO) != 0 && !kind.empty() && kind != "dumb";
}

std::size_t TerminalWidth() {
  winsize size = {};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  const std::size_t columns = ParseNumber<std::size_t>(Variable("COLUMNS")).value_or(0);
  return columns > 0 ? columns : 80;
}

std::string RateText(double rate) {
  std::array<char, 32> text = {};
  static_cast<void>(std::snprintf(text.data(), text.size(), rate < 10 ? "%.1f/s" : "%.0f/s", rate));
  return text.data();
}

// "1200/5400+  55/s  76 s+ left": while more files may be found, the total and the time left are lower bounds.
std::string Figures(const RunCounts& counts, double rate, double workRate) {
  const std::string growing = counts.mayGrow ? "+" : "";
  std::string text = std::to_string(counts.done) + "/" + std::to_string(counts.total) + growing;
  if (rate <= 0) return text;
  text += "  " + RateText(rate);
  return workRate > 0 ? text + "  " + DurationText(counts.workLeft / workRate) + growing + " left" : text;
}

}  // namespace

Screen StandardError(bool showsProgress) {
  const auto write = [](const std::string& text) {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));  // unbuffered: one write
  };
  return {CanRedraw(), TerminalWidth, write, Clock::now, showsProgress};
}

ProgressDisplay::ProgressDisplay(Screen screen) : screen_(std::move(screen)), next_(NextAfter(screen_.now())) {
  samples_.push_back({screen_.now(), 0, 0});
}

Clock::time_point ProgressDisplay::NextAfter(Clock::time_point now) const {
  if (!screen_.showsProgress) return noDeadline;
  return now + (screen_.isTerminal ? redrawInterval : lineInterval);
}

// Keeps one sample a second.
ProgressDisplay::Rates ProgressDisplay::RatesAt(const RunCounts& counts) {
  const Clock::time_point now = screen_.now();
  while (samples_.size() > 1 && now - samples_[1].time >= ratePeriod) samples_.pop_front();
  const Sample then = samples_.front();
  if (now - samples_.back().time >= std::chrono::seconds(1)) samples_.push_back({now, counts.done, counts.workDone});
  const double seconds = std::chrono::duration<double>(now - then.time).count();
  if (seconds <= 0) return {};
  return {static_cast<double>(counts.done - then.done) / seconds, (counts.workDone - then.workDone) / seconds};
}

void ProgressDisplay::Show(const RunCounts& counts) {
  const Clock::time_point now = screen_.now();
  if (now < next_) return;
  next_ = NextAfter(now);
  const Rates rates = RatesAt(counts);
  const std::string figures = Figures(counts, rates.files, rates.work);
  return screen_.isTerminal ? Draw(counts, figures) : Say(figures);
}

// Leaves the last column free: some terminals wrap as soon as it is filled.
void ProgressDisplay::Draw(const RunCounts& counts, const std::string& figures) {
  const std::size_t width = screen_.columns() - 1;
  std::string line = figures.substr(0, width);
  if (line.size() + 2 < width) line += "  " + TailWithin(Printable(counts.current), width - line.size() - 2);
  if (isDrawn_ && line == line_) return;
  line_ = line;
  isDrawn_ = true;
  screen_.write("\r" + line + eraseToEnd);
}

void ProgressDisplay::Say(const std::string& message) {
  const std::string said = "tavithumb: " + message;
  screen_.write(isDrawn_ ? "\r" + said + eraseToEnd + "\n" + line_ : said + "\n");
}

void ProgressDisplay::Clear() {
  if (!isDrawn_) return;
  screen_.write(std::string("\r") + eraseToEnd);
  isDrawn_ = false;
}

}  // namespace tavithumb::apps::command
