// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <type_traits>

#include "open_records.h"

namespace tavithumb::test {
namespace {

TEST(Error, WithoutAMessageReadsTheCodeAndOneSpace) {
  const OpenError error(7);
  EXPECT_STREQ(error.what(), "(E7) ");
  EXPECT_EQ(error.Code(), 7);
  EXPECT_EQ(error.message_, "");
}

TEST(Error, PrintsANegativeCodeWithItsSign) {
  const OpenError error(-1, "x");
  EXPECT_STREQ(error.what(), "(E-1) x");
  EXPECT_EQ(error.Code(), -1);
  EXPECT_EQ(error.message_, "x");
}

TEST(Error, ReadsCodeThenMessage) {
  EXPECT_STREQ(Error(601, "Can't stat /a/b.jpg").what(), "(E601) Can't stat /a/b.jpg");
}

TEST(Error, IsCopiedCompletely) {
  const OpenError original(603, "gone");
  const OpenError copy(original);
  EXPECT_EQ(copy.Code(), 603);
  EXPECT_STREQ(copy.what(), "(E603) gone");
  EXPECT_EQ(copy.message_, "gone");
}

TEST(Error, IsARuntimeError) {
  EXPECT_TRUE((std::is_base_of_v<std::runtime_error, Error>));
}

}  // namespace
}  // namespace tavithumb::test
