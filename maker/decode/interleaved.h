// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "maker/picture.h"

namespace tavithumb::maker {

// A black (and transparent) kGray, kRgb or kCmyk picture that covers its planes wholly. Throws std::bad_alloc.
Picture BlankPicture(Model model, bool hasAlpha, Size size);

// Splits pixels with as many 8-bit samples as the picture has channels into its planes, from (x, y) to the right.
void SplitRow(const std::uint8_t* pixels, int count, int x, int y, Picture* picture);

// The nearest 8-bit sample.
constexpr std::uint8_t From16Bits(std::uint32_t sample) {
  return static_cast<std::uint8_t>((sample * 255 + 32895) >> 16);
}

}  // namespace tavithumb::maker
