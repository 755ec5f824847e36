// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>

#include "maker/declined.h"
#include "maker/limits.h"
#include "maker/picture.h"

namespace tavithumb::maker {
namespace {

TEST(Planes, HaveAlignedRowsThatCanBeReadBeyondTheirEnd) {
  for (const int width : {1, 63, 64, 65, 479}) {
    const Plane plane(Size{width, 3});
    for (int y = 0; y < 3; ++y) {
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(plane.Row(y)) % Plane::kAlignment, 0U) << width;
      for (std::size_t x = 0; x < static_cast<std::size_t>(width) + Plane::kAlignment; ++x) {
        ASSERT_EQ(plane.Row(y)[x], 0) << width;
      }
    }
  }
}

// Of 65536 x 65536 samples with 32 bits, all but 4 MiB would get lost.
TEST(Planes, ThatNeedMoreThanASizeHoldsAreNotAllocated) {
  if (sizeof(std::size_t) > 4) GTEST_SKIP() << "takes 4 GiB with 64 bits";
  EXPECT_THROW(Plane(Size{65536, 65536}), std::bad_alloc);
}

Reason ReasonForSize(Size size) {
  try {
    CheckDecodedSize(size);
  } catch (const Declined& declined) {
    return declined.Why();
  }
  ADD_FAILURE() << "accepted: " << size.width << " x " << size.height;
  return Reason::kUnknownType;
}

TEST(Limits, DeclinePicturesThatAreEmptyOrTooLarge) {
  CheckStoredSize({1, 1});
  CheckStoredSize({65535, 7800});
  CheckDecodedSize({12800, 10000});
  EXPECT_EQ(ReasonForSize({12800, 10001}), Reason::kTooLarge);
  EXPECT_EQ(ReasonForSize({65536, 1}), Reason::kTooLarge);
  // As an int, the product is negative.
  EXPECT_EQ(ReasonForSize({46341, 46341}), Reason::kTooLarge);
  EXPECT_EQ(ReasonForSize({65535, 65535}), Reason::kTooLarge);
  EXPECT_EQ(ReasonForSize({0, 10}), Reason::kDamaged);
  EXPECT_EQ(ReasonForSize({10, -1}), Reason::kDamaged);
}

}  // namespace
}  // namespace tavithumb::maker
