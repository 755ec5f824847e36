// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/sizes.h"

#include <gtest/gtest.h>

#include <map>

namespace tavithumb::apps {
namespace {

TEST(Sizes, AreStoredInThisOrder) {
  EXPECT_EQ(StoredSizes(), (std::vector<std::string>{"small", "medium", "big", "large", "xlarge"}));
}

TEST(Sizes, AreStoredUnderTheirNames) {
  for (const std::string& name : StoredSizes()) EXPECT_TRUE(IsStoredSize(name)) << name;
  for (const char* name : {"", "original", "Small", "120x120", "XL"}) EXPECT_FALSE(IsStoredSize(name)) << name;
}

TEST(Sizes, AreOfferedTogetherWithBoxes) {
  EXPECT_EQ(StoredSizeChoices(), "small, medium, big, large or xlarge");
  EXPECT_EQ(SizeChoices(), "small, medium, big, large, xlarge, original, WIDTHxHEIGHT or SIDE");
}

TEST(Sizes, AreSquareBoxes) {
  const std::map<std::string, unsigned> sides = {
      {"small", 120}, {"medium", 360}, {"big", 640}, {"large", 1280}, {"xlarge", 1280}};
  for (const auto& [name, side] : sides) EXPECT_EQ(SideOf(name), side) << name;
}

TEST(Sizes, HaveLetters) {
  const std::map<std::string, std::string> sizes = {
      {"S", "small"}, {"M", "medium"}, {"B", "big"}, {"XL", "large/xlarge"}, {"L", ""}, {"X", ""}, {"", ""}};
  for (const auto& [letter, names] : sizes) EXPECT_EQ(SizesWithLetter(letter), names) << letter;
}

}  // namespace
}  // namespace tavithumb::apps
