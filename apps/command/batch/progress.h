// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>

namespace tavithumb::apps::command {

// How far a run has come.
struct Status {
  std::size_t done = 0;
  std::size_t total = 0;  // that are known
  bool mayGrow = true;    // more may be found
  std::string current;    // a file that is worked on
};

// Tells on standard error how a run goes: a line that stays in its place on a terminal, elsewhere a line every few
// seconds. What is said besides comes above it.
class Progress {
 public:
  Progress();
  // Takes the line away.
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // To be called as things change, and when NextEvent() milliseconds have passed.
  void Show(const Status& status);
  int NextEvent() const;

  // The size of the terminal has changed.
  void Redraw() {
    if (isTerminal_) next_ = Clock::now();
  }

  // Writes "tavithumb: <message>" as a line.
  void Say(const std::string& message);
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  double Rate(std::size_t done);

  bool isTerminal_;
  bool isDrawn_ = false;
  std::string line_;
  Clock::time_point next_;
  std::deque<std::pair<Clock::time_point, std::size_t>> samples_;  // of files that are done, for the rate
};

}  // namespace tavithumb::apps::command
