// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/processor_use.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace tavithumb::apps {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class ProcessorUseTest : public testing::Test {
 protected:
  void Use(long time) { ticks += time * sysconf(_SC_CLK_TCK) / 1000; }

  Clock::time_point now = {};
  long ticks = 1000;
  bool isReadable = true;
  ProcessorUse use{[this] { return isReadable ? "cpu  " + std::to_string(ticks) + " 5 6 7 8" : ""; },
                   [this] { return now; }};
};

TEST_F(ProcessorUseTest, IsThatOfOthersAboveATenthOfOneProcessor) {
  EXPECT_TRUE(use.IsUsedByOthers());  // nothing is known yet
  EXPECT_EQ(use.NextEvent(), now + seconds(1));
  now += seconds(1);
  Use(100);
  EXPECT_FALSE(use.IsUsedByOthers());
  EXPECT_EQ(use.NextEvent(), noDeadline);
  now += seconds(10);
  Use(1100);
  EXPECT_TRUE(use.IsUsedByOthers());
}

TEST_F(ProcessorUseTest, IsLookedAtOnceASecond) {
  EXPECT_TRUE(use.IsUsedByOthers());
  now += milliseconds(999);
  EXPECT_TRUE(use.IsUsedByOthers());
  now += milliseconds(1);
  EXPECT_FALSE(use.IsUsedByOthers());
}

TEST_F(ProcessorUseTest, IsAssumedWhereTheSystemDoesNotTell) {
  isReadable = false;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(use.IsUsedByOthers());
    now += seconds(1);
  }
}

TEST_F(ProcessorUseTest, IsReadFromTheSystem) {
  EXPECT_EQ(ProcessorUse::ReadSystemStatistics().substr(0, 5), "cpu  ");
}

}  // namespace
}  // namespace tavithumb::apps
