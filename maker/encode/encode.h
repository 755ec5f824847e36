// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "maker/picture.h"

namespace tavithumb::maker {

// Baseline JPEG with optimised tables (a large one's are made from a sample of it) and without metadata. The picture is
// kGray, or kYcc as JPEG files have it, at 4:2:0 or 4:4:4 as its planes are; no alpha. `quality` is 1 to 100. Throws
// std::bad_alloc; Declined (kTooLarge) if a side has more pixels than libjpeg writes.
std::vector<std::uint8_t> EncodeJpeg(const Picture& picture, int quality);

// Keywords and texts of a PNG file, in Latin-1. A keyword has 1 to 79 bytes.
using PngTexts = std::vector<std::pair<std::string, std::string>>;

// PNG with these texts and no other metadata: kGray or kRgb, with or without alpha, not premultiplied. Throws
// std::bad_alloc.
std::vector<std::uint8_t> EncodePng(const Picture& picture, const PngTexts& texts = {});

// Lossy WebP without metadata, of the same pictures; alpha is kept exactly. `quality` is 1 to 100. Throws
// std::bad_alloc; Declined (kTooLarge) if a side has more than the 16,383 pixels that WebP allows.
std::vector<std::uint8_t> EncodeWebp(const Picture& picture, int quality);

}  // namespace tavithumb::maker
