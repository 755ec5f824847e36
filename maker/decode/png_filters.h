// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavithumb::maker {

// PNG's filters, as a byte before each row names them.
enum PngFilter : std::uint8_t { kNoFilter, kSub, kUp, kAverage, kPaeth };

// Bytes that may be read behind a row.
inline constexpr std::size_t kPngRowPadding = 8;

// Undoes the filter of a row in place; `prior` is the row above, unfiltered, or zeros. `bytesPerPixel` is 1 for pixels
// smaller than a byte. Returns false if there is no such filter.
bool Unfilter(unsigned filter, std::uint8_t* row, const std::uint8_t* prior, std::size_t rowBytes,
              std::size_t bytesPerPixel);

}  // namespace tavithumb::maker
