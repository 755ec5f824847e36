// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/progress_display.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace tavithumb::apps::command {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr char erase[] = "\033[K";

std::string Drawn(const std::string& line) {
  return "\r" + line + erase;
}

class Progress : public testing::Test {
 protected:
  void Start(bool isTerminal) {
    display.emplace(Screen{isTerminal, [this] { return columns; }, [this](const std::string& text) { written += text; },
                           [this] { return time; }});
  }

  // The output of showing the counts this much later.
  std::string ShowAfter(Clock::duration wait, const RunCounts& counts) {
    time += wait;
    display->Show(counts);
    return std::exchange(written, "");
  }

  // Of files that take the same time each.
  static RunCounts Equal(std::size_t done, std::size_t total, bool mayGrow = false) {
    return {done, total, mayGrow, "", static_cast<double>(done), static_cast<double>(total - done)};
  }

  int MillisecondsLeft() const { return MillisecondsUntil(display->NextEvent(), time); }

  Clock::time_point time;
  std::size_t columns = 80;
  std::string written;
  std::optional<ProgressDisplay> display;
};

TEST_F(Progress, IsALineThatIsRedrawnTenTimesASecondOnATerminal) {
  Start(true);
  EXPECT_EQ(MillisecondsLeft(), 100);
  EXPECT_EQ(ShowAfter(milliseconds(99), {0, 1, true, "a.png"}), "");
  EXPECT_EQ(MillisecondsLeft(), 1);
  EXPECT_EQ(ShowAfter(milliseconds(1), {0, 1, true, "a.png"}), Drawn("0/1+  a.png"));
  EXPECT_EQ(MillisecondsLeft(), 100);
  EXPECT_EQ(ShowAfter(milliseconds(100), {0, 1, true, "a.png"}), "");  // as it was
  EXPECT_EQ(ShowAfter(milliseconds(100), {0, 2, false, "b.png"}), Drawn("0/2  b.png"));
  EXPECT_EQ(ShowAfter(milliseconds(50), {1, 2, false, "b.png"}), "");
  time += seconds(1);
  EXPECT_EQ(MillisecondsLeft(), 0);
}

TEST_F(Progress, IsANewLineEveryMinuteWithoutATerminal) {
  Start(false);
  EXPECT_EQ(MillisecondsLeft(), 60000);
  EXPECT_EQ(ShowAfter(milliseconds(59999), {9, 99, true, "a.png"}), "");
  EXPECT_EQ(ShowAfter(milliseconds(1), {0, 1, true, "a.png"}), "tavithumb: 0/1+\n");
  EXPECT_EQ(MillisecondsLeft(), 60000);
  EXPECT_EQ(ShowAfter(seconds(60), Equal(600, 1200)), "tavithumb: 600/1200  10/s  60 s left\n");
  display->Clear();
  display->Redraw();
  EXPECT_EQ(MillisecondsLeft(), 60000);
  display.reset();
  EXPECT_EQ(written, "");
}

struct Estimate {
  std::size_t done;  // in 60 seconds
  std::size_t total;
  bool mayGrow;
  std::string line;
};

TEST_F(Progress, EstimatesTheTimeLeft) {
  const Estimate rows[] = {
      {0, 5, false, "0/5"},
      {30, 30, false, "30/30  0.5/s  0 s left"},
      {6, 7, false, "6/7  0.1/s  10 s left"},
      {594, 693, false, "594/693  9.9/s  10 s left"},
      {600, 1590, false, "600/1590  10/s  99 s left"},
      {600, 1600, false, "600/1600  10/s  2 min left"},
      {600, 1600, true, "600/1600+  10/s  2 min+ left"},
      {600, 60590, false, "600/60590  10/s  100 min left"},
      {600, 60600, false, "600/60600  10/s  2 h left"},
      {74070, 74070, true, "74070/74070+  1234/s  0 s+ left"},
  };
  for (const Estimate& row : rows) {
    Start(false);
    EXPECT_EQ(ShowAfter(seconds(60), Equal(row.done, row.total, row.mayGrow)), "tavithumb: " + row.line + "\n");
  }
}

// A hundred files a second at first, then one.
TEST_F(Progress, HasTheRateOfTheLastHalfMinute) {
  Start(true);
  std::size_t done = 0;
  const auto show = [&](std::size_t files) { return ShowAfter(seconds(5), Equal(done += files, 10000)); };
  EXPECT_EQ(show(500), Drawn("500/10000  100/s  95 s left  "));
  EXPECT_EQ(show(500), Drawn("1000/10000  100/s  90 s left  "));
  for (int i = 0; i < 5; ++i) show(5);
  EXPECT_EQ(show(5), Drawn("1030/10000  1.0/s  2 h left  "));
}

// Nine small files and a large one, which takes as long as they do: half of the work is left, not a tenth.
TEST_F(Progress, EstimatesTheTimeLeftByTheWorkInTheFiles) {
  Start(false);
  EXPECT_EQ(ShowAfter(seconds(60), {9, 10, false, "", 900, 900}), "tavithumb: 9/10  0.1/s  60 s left\n");
  EXPECT_EQ(ShowAfter(seconds(60), {10, 11, false, "", 1800, 3600}), "tavithumb: 10/11  0.0/s  4 min left\n");
}

TEST_F(Progress, MayBeLeftOutForMessagesAlone) {
  for (const bool isTerminal : {false, true}) {
    display.emplace(Screen{isTerminal, [this] { return columns; }, [this](const std::string& text) { written += text; },
                           [this] { return time; }, false});
    display->Redraw();
    EXPECT_EQ(display->NextEvent(), noDeadline);
    EXPECT_EQ(ShowAfter(seconds(3600), Equal(1, 2)), "");
    display->Say("first");
    EXPECT_EQ(std::exchange(written, ""), "tavithumb: first\n");
  }
}

TEST_F(Progress, FitsTheTerminalWhateverTheNameIs) {
  const std::string name = "wait \xe5\xae\xb6\xe6\x97\x8f\xe5\x86\x99\xe7\x9c\x9f e\xcc\x81\033[2J.png";
  const std::pair<std::size_t, std::string> rows[] = {
      {80, "0/1  wait \xe5\xae\xb6\xe6\x97\x8f\xe5\x86\x99\xe7\x9c\x9f e\xcc\x81\\x1b[2J.png"},
      // 28 columns: 5 for "0/1  ", 3 dots; a wide character takes two columns, an accent none.
      {29, "0/1  ...\xe6\x97\x8f\xe5\x86\x99\xe7\x9c\x9f e\xcc\x81\\x1b[2J.png"},
      {20, "0/1  ...\xcc\x81\\x1b[2J.png"},
      {19, "0/1  ...x1b[2J.png"},
      {10, "0/1  ...g"},
      {9, "0/1  "},
      {6, "0/1"},
      {3, "0/"},
      {1, ""},
  };
  for (const auto& [width, line] : rows) {
    columns = width;
    Start(true);
    written.clear();  // of the one before, which is erased
    EXPECT_EQ(ShowAfter(milliseconds(100), {0, 1, false, name}), Drawn(line)) << width;
  }
}

TEST_F(Progress, IsDrawnAtOnceWhenTheTerminalHasANewSize) {
  Start(true);
  EXPECT_EQ(ShowAfter(milliseconds(100), {0, 1, false, "a-long-name.png"}), Drawn("0/1  a-long-name.png"));
  columns = 16;
  EXPECT_EQ(ShowAfter(milliseconds(1), {0, 1, false, "a-long-name.png"}), "");
  display->Redraw();
  EXPECT_EQ(MillisecondsLeft(), 0);
  EXPECT_EQ(ShowAfter(milliseconds(0), {0, 1, false, "a-long-name.png"}), Drawn("0/1  ...ame.png"));
}

TEST_F(Progress, StaysBelowMessages) {
  Start(true);
  display->Say("first");
  EXPECT_EQ(std::exchange(written, ""), "tavithumb: first\n");
  ShowAfter(milliseconds(100), {0, 1, false, "a.png"});
  display->Say("second");
  EXPECT_EQ(std::exchange(written, ""), Drawn("tavithumb: second") + "\n0/1  a.png");
}

TEST_F(Progress, IsErasedAtTheEndAndDrawnAgainAfterwards) {
  Start(true);
  display->Clear();
  EXPECT_EQ(written, "");
  ShowAfter(milliseconds(100), {0, 1, false, "a.png"});
  display->Clear();
  display->Clear();
  EXPECT_EQ(std::exchange(written, ""), Drawn(""));
  EXPECT_EQ(ShowAfter(milliseconds(100), {0, 1, false, "a.png"}), Drawn("0/1  a.png"));
  display.reset();
  EXPECT_EQ(written, Drawn(""));
}

}  // namespace
}  // namespace tavithumb::apps::command
