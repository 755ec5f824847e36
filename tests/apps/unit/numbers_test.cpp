// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/numbers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace tavithumb::apps {
namespace {

template <typename Number>
struct NumberRow {
  std::string text;
  std::optional<Number> number;
};

TEST(Numbers, AreWholeDecimalIntegers) {
  const NumberRow<int> rows[] = {
      {"0", 0},
      {"-1", -1},
      {"007", 7},
      {"2147483647", std::numeric_limits<int>::max()},
      {"-2147483648", std::numeric_limits<int>::min()},
      {"2147483648", {}},
      {"-2147483649", {}},
      {"99999999999999999999", {}},
      {"", {}},
      {"-", {}},
      {"+1", {}},
      {" 1", {}},
      {"1 ", {}},
      {"1.5", {}},
      {"1e3", {}},
      {"0x10", {}},
      {"1x", {}},
      {std::string("1\0", 2), {}},
  };
  for (const NumberRow<int>& row : rows) EXPECT_EQ(ParseNumber<int>(row.text), row.number) << row.text;
}

TEST(Numbers, HaveTheRangeOfTheirType) {
  const NumberRow<std::uint16_t> rows[] = {{"65535", std::uint16_t{65535}}, {"65536", {}}, {"-1", {}}, {"-0", {}}};
  for (const NumberRow<std::uint16_t>& row : rows)
    EXPECT_EQ(ParseNumber<std::uint16_t>(row.text), row.number) << row.text;
}

}  // namespace
}  // namespace tavithumb::apps
