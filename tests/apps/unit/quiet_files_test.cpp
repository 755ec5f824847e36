// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/quiet_files.h"

#include <gtest/gtest.h>

namespace tavithumb::apps::command {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class QuietFilesTest : public testing::Test {
 protected:
  Clock::time_point now = {};
  QuietFiles files{[this] { return now; }};
};

TEST_F(QuietFilesTest, AreGivenOutTwoSecondsAfterTheirLastChange) {
  files.Add("a");
  now += milliseconds(1500);
  files.Add("a");
  now += milliseconds(1999);
  EXPECT_EQ(files.Take(), std::nullopt);
  EXPECT_FALSE(files.IsEmpty());
  now += milliseconds(1);
  EXPECT_EQ(files.Take(), "a");
  EXPECT_EQ(files.Take(), std::nullopt);
  EXPECT_TRUE(files.IsEmpty());
}

TEST_F(QuietFilesTest, ComeInTheOrderInWhichTheyBecomeQuiet) {
  files.Add("b");
  files.Add("c", milliseconds(500));
  files.Add("a", seconds(5));
  EXPECT_EQ(files.NextEvent(), now);
  EXPECT_EQ(files.Take(), "a");
  EXPECT_EQ(files.NextEvent(), now + milliseconds(1500));
  now += seconds(2);
  EXPECT_EQ(files.Take(), "c");
  EXPECT_EQ(files.Take(), "b");
  EXPECT_EQ(files.NextEvent(), noDeadline);
}

TEST_F(QuietFilesTest, MayComeAgainAfterTheyWereGivenOut) {
  files.Add("a");
  now += seconds(2);
  EXPECT_EQ(files.Take(), "a");
  files.Add("a");
  now += seconds(2);
  EXPECT_EQ(files.Take(), "a");
}

}  // namespace
}  // namespace tavithumb::apps::command
