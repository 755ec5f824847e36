// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/progress_display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "system/numbers.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

constexpr std::chrono::milliseconds redrawInterval(100);
constexpr std::chrono::seconds lineInterval(5);
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

std::string DurationText(double seconds) {
  const long whole = std::lround(seconds);
  if (whole < 100) return std::to_string(whole) + " s";
  if (whole < 6000) return std::to_string((whole + 30) / 60) + " min";
  return std::to_string((whole + 1800) / 3600) + " h";
}

std::string RateText(double rate) {
  std::array<char, 32> text = {};
  static_cast<void>(std::snprintf(text.data(), text.size(), rate < 10 ? "%.1f/s" : "%.0f/s", rate));
  return text.data();
}

// "1200/5400+  55/s  76 s+ left": while more files may be found, the total and the time left are lower bounds.
std::string Figures(const RunCounts& counts, double rate) {
  const std::string growing = counts.mayGrow ? "+" : "";
  std::string text = std::to_string(counts.done) + "/" + std::to_string(counts.total) + growing;
  if (rate <= 0) return text;
  const double left = static_cast<double>(counts.total - counts.done) / rate;
  return text + "  " + RateText(rate) + "  " + DurationText(left) + growing + " left";
}

}  // namespace

Screen StandardError() {
  const auto write = [](const std::string& text) {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));  // unbuffered: one write
  };
  return {CanRedraw(), TerminalWidth, write, Clock::now};
}

ProgressDisplay::ProgressDisplay(Screen screen)
    : screen_(std::move(screen)), next_(screen_.now() + (screen_.isTerminal ? redrawInterval : lineInterval)) {
  samples_.emplace_back(screen_.now(), 0);
}

// Keeps one sample a second.
double ProgressDisplay::Rate(std::size_t done) {
  const Clock::time_point now = screen_.now();
  while (samples_.size() > 1 && now - samples_[1].first >= ratePeriod) samples_.pop_front();
  const auto [then, doneThen] = samples_.front();
  if (now - samples_.back().first >= std::chrono::seconds(1)) samples_.emplace_back(now, done);
  const double seconds = std::chrono::duration<double>(now - then).count();
  return seconds > 0 ? static_cast<double>(done - doneThen) / seconds : 0;
}

void ProgressDisplay::Show(const RunCounts& counts) {
  const Clock::time_point now = screen_.now();
  if (now < next_) return;
  next_ = now + (screen_.isTerminal ? redrawInterval : lineInterval);
  const std::string figures = Figures(counts, Rate(counts.done));
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
