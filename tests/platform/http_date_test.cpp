// SPDX-License-Identifier: GPL-3.0-or-later
#include "http/http_date.h"

#include <gtest/gtest.h>

#include <limits>
#include <utility>

namespace tavithumb::test {
namespace {

constexpr std::int64_t kToday = 1800000000;  // in January 2027

TEST(HttpDate, IsWrittenInTheFixedFormat) {
  const std::pair<std::int64_t, const char*> rows[] = {
      {0, "Thu, 01 Jan 1970 00:00:00 GMT"},
      {784111777, "Sun, 06 Nov 1994 08:49:37 GMT"},
      {951782399, "Mon, 28 Feb 2000 23:59:59 GMT"},
      {951782400, "Tue, 29 Feb 2000 00:00:00 GMT"},
      {951868800, "Wed, 01 Mar 2000 00:00:00 GMT"},
      {4107542399, "Sun, 28 Feb 2100 23:59:59 GMT"},
      {4107542400, "Mon, 01 Mar 2100 00:00:00 GMT"},
      {1735689599, "Tue, 31 Dec 2024 23:59:59 GMT"},
      {-1, "Wed, 31 Dec 1969 23:59:59 GMT"},
      {253402300799, "Fri, 31 Dec 9999 23:59:59 GMT"},
      {253402300800, "Fri, 31 Dec 9999 23:59:59 GMT"},
      {std::numeric_limits<std::int64_t>::max(), "Fri, 31 Dec 9999 23:59:59 GMT"},
      {std::numeric_limits<std::int64_t>::min(), "Mon, 01 Jan 0001 00:00:00 GMT"},
  };
  for (const auto& [seconds, text] : rows) EXPECT_EQ(tavi::FormatHttpDate(seconds), text) << seconds;
}

TEST(HttpDate, IsReadInAllThreeFormats) {
  const std::pair<const char*, std::int64_t> rows[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", 784111777},    {"Sunday, 06-Nov-94 08:49:37 GMT", 784111777},
      {"Sun Nov  6 08:49:37 1994", 784111777},         {"Sun Nov 16 08:49:37 1994", 784975777},
      {"Mon, 06 Nov 1994 08:49:37 GMT", 784111777},    {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
      {"Thu, 29 Feb 2024 12:00:00 GMT", 1709208000},   {"Thursday, 01-Jan-76 00:00:00 GMT", 3345062400},
      {"Thursday, 01-Jan-78 00:00:00 GMT", 252460800}, {"Fri, 30 Jun 2023 23:59:60 GMT", 1688169599},
      {"Wed, 31 Dec 1969 23:59:59 GMT", -1},
  };
  for (const auto& [text, seconds] : rows) EXPECT_EQ(tavi::ParseHttpDate(text, kToday), seconds) << text;
}

TEST(HttpDate, IsNothingForAnyOtherText) {
  for (const char* text : {"",
                           "Sun",
                           "Sun, 06 Nov 1994 08:49:37",
                           "Sun, 06 Nov 1994 08:49:37 GMT ",
                           " Sun, 06 Nov 1994 08:49:37 GMT",
                           "Sun, 6 Nov 1994 08:49:37 GMT",
                           "Sun, 06 nov 1994 08:49:37 GMT",
                           "sun, 06 Nov 1994 08:49:37 GMT",
                           "Sun, 06 Nov 1994 08:49:37 UTC",
                           "Sun, 06 Nov 94 08:49:37 GMT",
                           "Sun, 32 Nov 1994 08:49:37 GMT",
                           "Sun, 00 Nov 1994 08:49:37 GMT",
                           "Sun, 31 Nov 1994 08:49:37 GMT",
                           "Wed, 29 Feb 2023 08:49:37 GMT",
                           "Sun, 06 Nov 1994 24:49:37 GMT",
                           "Sun, 06 Nov 1994 08:60:37 GMT",
                           "Sun, 06 Nov 1994 08:49:61 GMT",
                           "Sun, 06 Nov 1994 8:49:37 GMT",
                           "Sun, 06 Nov 1994 08:49:3x GMT",
                           "Sun 06 Nov 1994 08:49:37 GMT",
                           "Sun Nov 6 08:49:37 1994",
                           "Sunday, 06-Nov-1994 08:49:37 GMT",
                           "784111777"}) {
    EXPECT_EQ(tavi::ParseHttpDate(text, kToday), std::nullopt) << text;
  }
}

TEST(HttpDate, IsReadBackAsItWasWritten) {
  for (std::int64_t seconds = -62135596800; seconds <= 253402300799; seconds += 8640123457) {
    EXPECT_EQ(tavi::ParseHttpDate(tavi::FormatHttpDate(seconds), kToday), seconds);
  }
}

}  // namespace
}  // namespace tavithumb::test
