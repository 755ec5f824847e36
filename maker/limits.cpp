// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/limits.h"

#include <string>

#include "maker/declined.h"

namespace tavithumb::maker {
namespace {

void Check(Size size, std::int64_t mostPixels) {
  if (size.width <= 0 || size.height <= 0) throw Declined(Reason::kDamaged, "the picture has no pixels");
  const std::int64_t pixels = std::int64_t{size.width} * size.height;
  if (size.width <= kMaxSide && size.height <= kMaxSide && pixels <= mostPixels) return;
  throw Declined(Reason::kTooLarge, "the picture has " + std::to_string(size.width) + " x " +
                                        std::to_string(size.height) + " pixels, more than are decoded");
}

}  // namespace

void CheckStoredSize(Size size) {
  Check(size, kMaxStoredPixels);
}

void CheckDecodedSize(Size size) {
  Check(size, kMaxDecodedPixels);
}

}  // namespace tavithumb::maker
