// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/encode/huffman.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace tavithumb::maker {
namespace {

std::size_t CodesOf(const HuffmanTable& table) {
  return std::accumulate(table.counts.begin(), table.counts.end(), std::size_t{0});
}

// How much of all codes of 16 bits begin with a code of the table.
unsigned UsedOf(const HuffmanTable& table) {
  unsigned used = 0;
  for (unsigned bits = 1; bits <= 16; ++bits) used += table.counts[bits] * (1U << (16 - bits));
  return used;
}

TEST(HuffmanTables, GiveFrequentSymbolsShortCodes) {
  Weights weights = {};
  weights[0x00] = 1;
  weights[0xF0] = 2;
  weights[0x11] = 4;
  weights[0x21] = 8;
  const HuffmanTable table = BestTable(weights);
  std::array<std::uint8_t, 17> counts = {};
  counts[1] = counts[2] = counts[3] = counts[4] = 1;
  EXPECT_EQ(table.counts, counts);
  EXPECT_EQ(std::vector<int>(table.symbols.begin(), table.symbols.begin() + 5),
            (std::vector<int>{0x21, 0x11, 0xF0, 0, 0}));
}

TEST(HuffmanTables, OfEqualWeightsHaveCodesOfEqualLength) {
  Weights weights = {};
  std::fill_n(weights.begin(), 15, 3);
  std::array<std::uint8_t, 17> counts = {};
  counts[4] = 15;
  EXPECT_EQ(BestTable(weights).counts, counts);
}

TEST(HuffmanTables, AreEmptyOrHaveOneCodeOfOneBit) {
  Weights weights = {};
  EXPECT_EQ(CodesOf(BestTable(weights)), 0U);
  weights[7] = 1;
  const HuffmanTable table = BestTable(weights);
  EXPECT_EQ(table.counts[1], 1);
  EXPECT_EQ(CodesOf(table), 1U);
  EXPECT_EQ(table.symbols[0], 7);
}

// Weights that grow like this need the longest codes.
TEST(HuffmanTables, HaveNoCodeOfMoreThan16BitsOrOfOnesOnly) {
  for (std::size_t count : {16U, 17U, 25U, 40U, 162U, 256U}) {
    Weights weights = {};
    std::uint64_t a = 1;
    std::uint64_t b = 1;
    for (std::size_t i = 0; i < count; ++i) {
      weights[i] = static_cast<std::uint32_t>(std::min<std::uint64_t>(a, 1U << 30));
      a = std::exchange(b, std::min<std::uint64_t>(a + b, 1U << 30));
    }
    const HuffmanTable table = BestTable(weights);
    EXPECT_EQ(table.counts[0], 0) << count;
    EXPECT_LT(UsedOf(table), 1U << 16) << count;
    ASSERT_EQ(CodesOf(table), count);
    std::vector<int> symbols(table.symbols.begin(), table.symbols.begin() + static_cast<std::ptrdiff_t>(count));
    std::sort(symbols.begin(), symbols.end());
    std::vector<int> expected(count);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(symbols, expected);
  }
}

}  // namespace
}  // namespace tavithumb::maker
