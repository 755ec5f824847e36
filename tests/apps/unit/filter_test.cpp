// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/filter.h"

#include <gtest/gtest.h>
#include <temp_dir.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace tavithumb::apps::command {
namespace {

class Moments : public testing::Test {
 protected:
  Moments() {
    setenv("TZ", "UTC-2", 1);
    tzset();
  }
  ~Moments() override {
    unsetenv("TZ");
    tzset();
  }
};

TEST_F(Moments, AreDatesInLocalTime) {
  const std::pair<const char*, std::time_t> moments[] = {
      {"1970-01-02", 79200}, {"1970-01-02 03:04", 90240}, {"1970-01-02 03:04:05", 90245}, {"2024-02-29", 1709157600}};
  for (const auto& [text, seconds] : moments) EXPECT_EQ(ParseMoment(text).tv_sec, seconds) << text;
}

TEST_F(Moments, AreThoseOfAFile) {
  const test::TempDir folder;
  test::WriteFile(folder / "mark", "");
  test::SetTimes(folder / "mark", 1234567, 1234567);
  EXPECT_EQ(ParseMoment(folder / "mark").tv_sec, 1234567);
}

TEST_F(Moments, MustExist) {
  for (const char* text :
       {"", "2024-02-30", "2023-02-29", "2024-13-01", "2024-01-01 25:00", "2024-01-01x", "yesterday"}) {
    EXPECT_THROW(ParseMoment(text), std::invalid_argument) << text;
  }
}

}  // namespace
}  // namespace tavithumb::apps::command
