// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <vector>

#include "command/output.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

// Between two looks of the line, and of the lines elsewhere.
constexpr std::chrono::milliseconds redrawTime(100);
constexpr std::chrono::seconds lineTime(5);
// The rate is that of this time.
constexpr std::chrono::seconds rateTime(30);

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
  const std::string columns = Variable("COLUMNS");
  std::size_t width = 0;
  std::from_chars(columns.data(), columns.data() + columns.size(), width);
  return width > 0 ? width : 80;
}

// Characters as a terminal that knows UTF-8 shows them, whatever the locale is.
class Utf8 {
 public:
  Utf8() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), before_(uselocale(locale_)) {}
  ~Utf8() {
    uselocale(before_);
    if (locale_ != nullptr) freelocale(locale_);
  }
  Utf8(const Utf8&) = delete;
  Utf8& operator=(const Utf8&) = delete;

 private:
  locale_t locale_;
  locale_t before_;
};

struct Character {
  std::size_t bytes;
  std::size_t columns;
};

std::vector<Character> CharactersOf(const std::string& text) {
  const Utf8 utf8;
  std::vector<Character> characters;
  std::mbstate_t state = {};
  for (std::size_t used = 0; used < text.size(); used += characters.back().bytes) {
    wchar_t wide = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is ours
    const std::size_t bytes = std::mbrtowc(&wide, text.data() + used, text.size() - used, &state);
    if (bytes == 0 || bytes > text.size()) {
      state = {};
      characters.push_back({1, 1});
    } else {
      characters.push_back({bytes, static_cast<std::size_t>(std::max(wcwidth(wide), 0))});
    }
  }
  return characters;
}

// The end of `text` that fits into `columns`, with "..." in front of it when that is not all.
std::string EndOf(const std::string& text, std::size_t columns) {
  const std::vector<Character> characters = CharactersOf(text);
  std::size_t width = 0;
  for (const Character& character : characters) width += character.columns;
  if (width <= columns) return text;
  if (columns < 4) return "";
  std::size_t dropped = 0;
  for (auto character = characters.begin(); width > columns - 3; ++character) {
    width -= character->columns;
    dropped += character->bytes;
  }
  return "..." + text.substr(dropped);
}

std::string TimeOf(double seconds) {
  const long whole = std::lround(seconds);
  if (whole < 100) return std::to_string(whole) + " s";
  if (whole < 6000) return std::to_string((whole + 30) / 60) + " min";
  return std::to_string((whole + 1800) / 3600) + " h";
}

std::string RateOf(double rate) {
  std::array<char, 32> text = {};
  static_cast<void>(std::snprintf(text.data(), text.size(), rate < 10 ? "%.1f/s" : "%.0f/s", rate));
  return text.data();
}

// "1200/5400+  55/s  76 s+ left": as long as more may be found, there may be more of all that is still to come.
std::string Figures(const Status& status, double rate) {
  const std::string growing = status.mayGrow ? "+" : "";
  std::string text = std::to_string(status.done) + "/" + std::to_string(status.total) + growing;
  if (rate <= 0) return text;
  const double left = static_cast<double>(status.total - status.done) / rate;
  return text + "  " + RateOf(rate) + "  " + TimeOf(left) + growing + " left";
}

void Write(const std::string& text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));  // unbuffered: one write
}

}  // namespace

Progress::Progress() : isTerminal_(CanRedraw()), next_(Clock::now() + (isTerminal_ ? redrawTime : lineTime)) {
  samples_.emplace_back(Clock::now(), 0);
}

// Keeps a sample a second.
double Progress::Rate(std::size_t done) {
  const Clock::time_point now = Clock::now();
  while (samples_.size() > 1 && now - samples_[1].first >= rateTime) samples_.pop_front();
  const auto [then, doneThen] = samples_.front();
  if (now - samples_.back().first >= std::chrono::seconds(1)) samples_.emplace_back(now, done);
  const double seconds = std::chrono::duration<double>(now - then).count();
  return seconds > 0 ? static_cast<double>(done - doneThen) / seconds : 0;
}

void Progress::Show(const Status& status) {
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  const std::string figures = Figures(status, Rate(status.done));
  next_ = now + (isTerminal_ ? redrawTime : lineTime);
  if (!isTerminal_) return WriteError(figures);
  const std::size_t width = TerminalWidth() - 1;  // some terminals go on to the next line behind the last column
  std::string line = figures.substr(0, width);
  if (line.size() + 2 < width) line += "  " + EndOf(Printable(status.current), width - line.size() - 2);
  if (isDrawn_ && line == line_) return;
  line_ = line;
  isDrawn_ = true;
  Write("\r" + line + eraseToEnd);
}

int Progress::NextEvent() const {
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(wait.count(), 0));
}

void Progress::Say(const std::string& message) {
  const std::string said = "tavithumb: " + message + "\n";
  Write(isDrawn_ ? "\r" + said.substr(0, said.size() - 1) + eraseToEnd + "\n" + line_ : said);
}

void Progress::Clear() {
  if (!isDrawn_) return;
  Write(std::string("\r") + eraseToEnd);
  isDrawn_ = false;
}

}  // namespace tavithumb::apps::command
