// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/decode/png_filters.h"

#include <cstdlib>
#include <cstring>

// This file is compiled once for each kind of vector instructions; the processor's best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "maker/decode/png_filters.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tavithumb::maker::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

void UndoUp(std::uint8_t* row, const std::uint8_t* prior, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) row[i] = static_cast<std::uint8_t>(row[i] + prior[i]);
}

#if HWY_TARGET == HWY_SCALAR

template <std::size_t kBytes>
void UndoSub(std::uint8_t* row, std::size_t count) {
  for (std::size_t i = kBytes; i < count; ++i) row[i] = static_cast<std::uint8_t>(row[i] + row[i - kBytes]);
}

template <std::size_t kBytes>
void UndoAverage(std::uint8_t* row, const std::uint8_t* prior, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const int left = i < kBytes ? 0 : row[i - kBytes];
    row[i] = static_cast<std::uint8_t>(row[i] + (left + prior[i]) / 2);
  }
}

int Nearest(int left, int above, int corner) {
  const int fromLeft = std::abs(above - corner);
  const int fromAbove = std::abs(left - corner);
  const int fromCorner = std::abs(left + above - 2 * corner);
  if (fromLeft <= fromAbove && fromLeft <= fromCorner) return left;
  return fromAbove <= fromCorner ? above : corner;
}

template <std::size_t kBytes>
void UndoPaeth(std::uint8_t* row, const std::uint8_t* prior, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const int left = i < kBytes ? 0 : row[i - kBytes];
    const int corner = i < kBytes ? 0 : prior[i - kBytes];
    row[i] = static_cast<std::uint8_t>(row[i] + Nearest(left, prior[i], corner));
  }
}

#else

// Each pixel depends on the one before: one pixel at a time, all of its samples at once, in 16 bits each.
template <std::size_t kBytes>
struct Pixel {
  using Narrow = hn::FixedTag<std::uint8_t, (kBytes <= 4 ? 4 : 8)>;
  using Wide = hn::Rebind<std::int16_t, Narrow>;
  using Vector = hn::Vec<Wide>;

  static Vector Zero() { return hn::Zero(Wide()); }
  static Vector Load(const std::uint8_t* from) { return hn::PromoteTo(Wide(), hn::LoadU(Narrow(), from)); }
  static Vector Wrap(Vector samples) { return hn::And(samples, hn::Set(Wide(), 255)); }

  static void Store(Vector samples, std::uint8_t* to) {
    std::uint8_t bytes[8];
    hn::StoreU(hn::DemoteTo(Narrow(), samples), Narrow(), bytes);
    std::memcpy(to, bytes, kBytes);
  }
};

template <std::size_t kBytes>
void UndoSub(std::uint8_t* row, std::size_t count) {
  using P = Pixel<kBytes>;
  auto left = P::Zero();
  for (std::size_t i = 0; i < count; i += kBytes) {
    left = P::Wrap(hn::Add(P::Load(row + i), left));
    P::Store(left, row + i);
  }
}

template <std::size_t kBytes>
void UndoAverage(std::uint8_t* row, const std::uint8_t* prior, std::size_t count) {
  using P = Pixel<kBytes>;
  auto left = P::Zero();
  for (std::size_t i = 0; i < count; i += kBytes) {
    const auto average = hn::ShiftRight<1>(hn::Add(left, P::Load(prior + i)));
    left = P::Wrap(hn::Add(P::Load(row + i), average));
    P::Store(left, row + i);
  }
}

template <class Vector>
HWY_INLINE Vector Nearest(Vector left, Vector above, Vector corner) {
  const auto toAbove = hn::Sub(above, corner);
  const auto toLeft = hn::Sub(left, corner);
  const auto fromLeft = hn::Abs(toAbove);
  const auto fromAbove = hn::Abs(toLeft);
  const auto fromCorner = hn::Abs(hn::Add(toAbove, toLeft));
  const auto least = hn::Min(hn::Min(fromLeft, fromAbove), fromCorner);
  const auto other = hn::IfThenElse(hn::Eq(fromAbove, least), above, corner);
  return hn::IfThenElse(hn::Eq(fromLeft, least), left, other);
}

template <std::size_t kBytes>
void UndoPaeth(std::uint8_t* row, const std::uint8_t* prior, std::size_t count) {
  using P = Pixel<kBytes>;
  auto left = P::Zero();
  auto corner = P::Zero();
  for (std::size_t i = 0; i < count; i += kBytes) {
    const auto above = P::Load(prior + i);
    left = P::Wrap(hn::Add(P::Load(row + i), Nearest(left, above, corner)));
    corner = above;
    P::Store(left, row + i);
  }
}

#endif

template <std::size_t kBytes>
bool UndoFilter(unsigned filter, std::uint8_t* row, const std::uint8_t* prior, std::size_t count) {
  switch (filter) {
    case kNoFilter:
      return true;
    case kSub:
      UndoSub<kBytes>(row, count);
      return true;
    case kUp:
      UndoUp(row, prior, count);
      return true;
    case kAverage:
      UndoAverage<kBytes>(row, prior, count);
      return true;
    case kPaeth:
      UndoPaeth<kBytes>(row, prior, count);
      return true;
    default:
      return false;
  }
}

bool UndoAnyFilter(unsigned filter, std::uint8_t* row, const std::uint8_t* prior, std::size_t count,
                   std::size_t bytesPerPixel) {
  switch (bytesPerPixel) {
    case 1:
      return UndoFilter<1>(filter, row, prior, count);
    case 2:
      return UndoFilter<2>(filter, row, prior, count);
    case 3:
      return UndoFilter<3>(filter, row, prior, count);
    case 4:
      return UndoFilter<4>(filter, row, prior, count);
    case 6:
      return UndoFilter<6>(filter, row, prior, count);
    default:
      return UndoFilter<8>(filter, row, prior, count);
  }
}

}  // namespace tavithumb::maker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace tavithumb::maker {

HWY_EXPORT(UndoAnyFilter);

bool Unfilter(unsigned filter, std::uint8_t* row, const std::uint8_t* prior, std::size_t rowBytes,
              std::size_t bytesPerPixel) {
  return HWY_DYNAMIC_DISPATCH(UndoAnyFilter)(filter, row, prior, rowBytes, bytesPerPixel);
}

}  // namespace tavithumb::maker

#endif
