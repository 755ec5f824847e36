// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstddef>
#include <cstdint>

#include "maker/colour.h"

// The compiler reads this file once for each kind of vector instructions; the processor's best is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "maker/ycc.cpp"
#include <hwy/foreach_target.h>  // before highway.h
#include <hwy/highway.h>

#ifndef TAVITHUMB_MAKER_YCC_FACTORS
#define TAVITHUMB_MAKER_YCC_FACTORS
namespace tavithumb::maker {

// All sums are in units of 1/65536.
constexpr int kYccBits = 16;
constexpr int kYccHalf = 1 << (kYccBits - 1);
constexpr int kMiddle = 128;

constexpr int Fixed(double value) {
  return static_cast<int>(value * (1 << kYccBits) + (value < 0 ? -0.5 : 0.5));
}

struct RgbFactors {
  int luma;
  int black;  // the Y of black
  int redOfCr;
  int greenOfCb;
  int greenOfCr;
  int blueOfCb;
};

}  // namespace tavithumb::maker
#endif

HWY_BEFORE_NAMESPACE();
namespace tavithumb::maker::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

constexpr hn::CappedTag<std::int32_t, 16> kSums;
constexpr hn::Rebind<std::uint8_t, decltype(kSums)> kSamples;
using Sums = hn::Vec<decltype(kSums)>;

HWY_INLINE Sums Load(const std::uint8_t* samples) {
  return hn::PromoteTo(kSums, hn::LoadU(kSamples, samples));
}

HWY_INLINE Sums Times(Sums value, int factor) {
  return hn::Mul(value, hn::Set(kSums, factor));
}

// Rounds and clamps.
HWY_INLINE void Store(Sums sum, std::uint8_t* samples) {
  const Sums rounded = hn::ShiftRight<kYccBits>(hn::Add(sum, hn::Set(kSums, kYccHalf)));
  hn::StoreU(hn::DemoteTo(kSamples, rounded), kSamples, samples);
}

// Rows are read and written in whole vectors.
void RowToRgb(std::uint8_t* a, std::uint8_t* b, std::uint8_t* c, std::size_t width, const RgbFactors& factors) {
  for (std::size_t x = 0; x < width; x += hn::Lanes(kSums)) {
    const Sums luma = Times(hn::Sub(Load(a + x), hn::Set(kSums, factors.black)), factors.luma);
    const Sums cb = hn::Sub(Load(b + x), hn::Set(kSums, kMiddle));
    const Sums cr = hn::Sub(Load(c + x), hn::Set(kSums, kMiddle));
    Store(hn::Add(luma, Times(cr, factors.redOfCr)), a + x);
    Store(hn::Add(luma, hn::Add(Times(cb, factors.greenOfCb), Times(cr, factors.greenOfCr))), b + x);
    Store(hn::Add(luma, Times(cb, factors.blueOfCb)), c + x);
  }
}

void RowToYcc(std::uint8_t* a, std::uint8_t* b, std::uint8_t* c, std::size_t width) {
  // One less than half, as JPEG encoders have it: the largest sum must not become 256.
  const Sums offset = hn::Set(kSums, (kMiddle << kYccBits) - 1);
  for (std::size_t x = 0; x < width; x += hn::Lanes(kSums)) {
    const Sums red = Load(a + x);
    const Sums green = Load(b + x);
    const Sums blue = Load(c + x);
    const auto sum = [&](int ofRed, int ofGreen, int ofBlue) HWY_ATTR {
      return hn::Add(hn::Add(Times(red, ofRed), Times(green, ofGreen)), Times(blue, ofBlue));
    };
    Store(sum(Fixed(0.299), Fixed(0.587), Fixed(0.114)), a + x);
    Store(hn::Add(sum(Fixed(-0.16874), Fixed(-0.33126), Fixed(0.5)), offset), b + x);
    Store(hn::Add(sum(Fixed(0.5), Fixed(-0.41869), Fixed(-0.08131)), offset), c + x);
  }
}

}  // namespace tavithumb::maker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tavithumb::maker {
namespace {

HWY_EXPORT(RowToRgb);
HWY_EXPORT(RowToYcc);

// The JPEG standard's numbers have five decimals, and every decoder uses these.
constexpr RgbFactors kJpeg = {Fixed(1), 0, Fixed(1.402), Fixed(-0.34414), Fixed(-0.71414), Fixed(1.772)};

RgbFactors FactorsOf(const Ycc& ycc) {
  if (ycc.IsJpeg()) return kJpeg;
  const double red = ycc.redWeight;
  const double blue = ycc.blueWeight;
  const double green = 1 - red - blue;
  const double chroma = ycc.isFullRange ? 2 : 2 * 255.0 / 224;
  return {ycc.isFullRange ? Fixed(1) : Fixed(255.0 / 219),
          ycc.isFullRange ? 0 : 16,
          Fixed(chroma * (1 - red)),
          Fixed(-chroma * blue * (1 - blue) / green),
          Fixed(-chroma * red * (1 - red) / green),
          Fixed(chroma * (1 - blue))};
}

// Calls `convert` with the rows of the first three planes.
template <typename Convert>
void ForRows(Picture* picture, const Convert& convert) {
  const Size size = picture->channels[0].plane.Dimensions();
  const auto row = [&](std::size_t channel, int y) { return picture->channels[channel].plane.Row(y); };
  for (int y = 0; y < size.height; ++y) convert(row(0, y), row(1, y), row(2, y), static_cast<std::size_t>(size.width));
}

}  // namespace

void YccToRgb(Picture* picture) {
  const RgbFactors factors = FactorsOf(picture->ycc);
  ForRows(picture, [&](std::uint8_t* a, std::uint8_t* b, std::uint8_t* c, std::size_t width) {
    HWY_DYNAMIC_DISPATCH(RowToRgb)(a, b, c, width, factors);
  });
  picture->model = Model::kRgb;
  picture->ycc = {};
}

void RgbToYcc(Picture* picture) {
  ForRows(picture, [](std::uint8_t* a, std::uint8_t* b, std::uint8_t* c, std::size_t width) {
    HWY_DYNAMIC_DISPATCH(RowToYcc)(a, b, c, width);
  });
  picture->model = Model::kYcc;
  picture->ycc = {};
}

}  // namespace tavithumb::maker
#endif
