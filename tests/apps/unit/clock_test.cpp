// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/clock.h"

#include <gtest/gtest.h>

#include <limits>

namespace tavithumb::apps {
namespace {

TEST(Clock, TheTimeoutOfADeadlineIsRoundedUpAndNeverNegative) {
  struct Row {
    Clock::duration left;
    int expected;
  };
  using namespace std::chrono_literals;
  const Clock::time_point now = Clock::now();
  for (const Row& row : {Row{0ns, 0}, Row{1ns, 1}, Row{1ms, 1}, Row{1ms + 1ns, 2}, Row{5min, 300000}, Row{-1ns, 0},
                         Row{-1h, 0}, Row{10000h, std::numeric_limits<int>::max()}}) {
    EXPECT_EQ(MillisecondsUntil(now + row.left, now), row.expected) << row.left.count() << " ns left";
  }
}

TEST(Clock, WithoutADeadlineTheTimeoutIsIndefinite) {
  EXPECT_EQ(MillisecondsUntil(noDeadline), -1);
}

}  // namespace
}  // namespace tavithumb::apps
