// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>

#include "maker/picture.h"

namespace tavithumb::maker {

// What a source may ask for, checked before memory is allocated for it. All in one place.

// The longest side of a picture, in pixels: JPEG's own limit.
inline constexpr int kMaxSide = 65535;
// Pixels of a picture as stored, of decoders that scale while they decode.
inline constexpr std::int64_t kMaxStoredPixels = 512LL * 1000 * 1000;
// Pixels that are held in memory at once.
inline constexpr std::int64_t kMaxDecodedPixels = 128LL * 1000 * 1000;
// An ICC profile; those of printing presses have up to 3 MiB.
inline constexpr std::size_t kMaxProfileBytes = std::size_t{4} << 20;
// A file that is read into memory as a whole.
inline constexpr std::size_t kMaxFileBytes = std::size_t{512} << 20;
// Scans of a progressive JPEG: each one costs another pass over the picture.
inline constexpr int kMaxScans = 100;
// Tiles of a HEIF picture: as many as the largest picture has with tiles of 256 x 256.
inline constexpr int kMaxTiles = 2048;

// Throws Declined (kTooLarge, or kDamaged if a side is not positive).
void CheckStoredSize(Size size);
void CheckDecodedSize(Size size);

}  // namespace tavithumb::maker
