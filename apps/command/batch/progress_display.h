// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>

#include "system/clock.h"

namespace tavithumb::apps::command {

// The progress of a run.
struct RunCounts {
  std::size_t done = 0;
  std::size_t total = 0;  // known so far
  bool mayGrow = true;    // more may be found
  std::string current;    // a file that is being processed
  double workDone = 0;    // in any unit; files differ
  double workLeft = 0;
};

// Where progress is shown, and the clock.
struct Screen {
  bool isTerminal;                       // one on which a line can be redrawn
  std::function<std::size_t()> columns;  // the terminal's current width
  std::function<void(const std::string&)> write;
  Now now;
  bool showsProgress = true;  // otherwise only messages
};

// Standard error; redrawn only on a terminal whose $TERM supports it.
Screen StandardError(bool showsProgress = true);

// Shows the progress of a run: on a terminal as one line that is redrawn in place, elsewhere as a new line every
// minute. Messages appear above the redrawn line.
class ProgressDisplay {
 public:
  explicit ProgressDisplay(Screen screen = StandardError());
  // Erases the line.
  ~ProgressDisplay() { Clear(); }
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  // Call it whenever the counts change, and at NextEvent(). Draws only when a redraw is due.
  void Show(const RunCounts& counts);
  Clock::time_point NextEvent() const { return next_; }

  // Makes the next Show() draw at once, because the terminal has a new size.
  void Redraw() {
    if (screen_.isTerminal && screen_.showsProgress) next_ = screen_.now();
  }

  // Writes "tavithumb: <message>" as a line.
  void Say(const std::string& message);
  // Erases the line; the next Show() draws it again.
  void Clear();

 private:
  Clock::time_point NextAfter(Clock::time_point now) const;
  struct Rates {
    double files;  // a second
    double work;
  };
  struct Sample {
    Clock::time_point time;
    std::size_t done;
    double workDone;
  };

  Rates RatesAt(const RunCounts& counts);
  void Draw(const RunCounts& counts, const std::string& figures);

  Screen screen_;
  bool isDrawn_ = false;
  std::string line_;
  Clock::time_point next_;
  std::deque<Sample> samples_;
};

}  // namespace tavithumb::apps::command
