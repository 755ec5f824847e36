// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "maker/resample.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "maker/transpose.cpp"
#include <hwy/foreach_target.h>  // before highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tavithumb::maker::HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR

void TransposeInto(const Plane& source, Plane* result) {
  for (int y = 0; y < source.Height(); ++y) {
    for (int x = 0; x < source.Width(); ++x) result->Row(x)[y] = source.Row(y)[x];
  }
}

#else

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t kSide = 16;
constexpr hn::FixedTag<std::uint8_t, kSide> kRow;
using Row = hn::Vec<decltype(kRow)>;

// One of four equal steps that turn the rows of a square into its columns.
HWY_INLINE void Shuffle(const Row* from, Row* to) {
  for (std::size_t i = 0; i < kSide / 2; ++i) {
    to[2 * i] = hn::InterleaveLower(kRow, from[i], from[i + kSide / 2]);
    to[2 * i + 1] = hn::InterleaveUpper(kRow, from[i], from[i + kSide / 2]);
  }
}

// A square whose top left corner is at (x, y). Planes may be read and written beyond the ends of their rows.
void TransposeSquare(const Plane& source, int x, int y, Plane* result) {
  Row one[kSide];
  Row other[kSide];
  for (int i = 0; i < static_cast<int>(kSide); ++i) {
    one[i] = hn::LoadU(kRow, source.Row(std::min(y + i, source.Height() - 1)) + x);
  }
  Shuffle(one, other);
  Shuffle(other, one);
  Shuffle(one, other);
  Shuffle(other, one);
  const int rows = std::min(static_cast<int>(kSide), result->Height() - x);
  for (int i = 0; i < rows; ++i) hn::StoreU(one[i], kRow, result->Row(x + i) + y);
}

void TransposeInto(const Plane& source, Plane* result) {
  for (int y = 0; y < source.Height(); y += static_cast<int>(kSide)) {
    for (int x = 0; x < source.Width(); x += static_cast<int>(kSide)) TransposeSquare(source, x, y, result);
  }
}

#endif

}  // namespace tavithumb::maker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tavithumb::maker {
namespace {

HWY_EXPORT(TransposeInto);

}  // namespace

Plane Transpose(const Plane& source) {
  Plane result({source.Height(), source.Width()});
  HWY_DYNAMIC_DISPATCH(TransposeInto)(source, &result);
  return result;
}

}  // namespace tavithumb::maker
#endif
