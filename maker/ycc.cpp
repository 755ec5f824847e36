// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "maker/colour.h"

namespace tavithumb::maker {
namespace {

// All sums are in units of 1/65536.
constexpr int kBits = 16;
constexpr int kHalf = 1 << (kBits - 1);
constexpr int kMiddle = 128;

constexpr int Fixed(double value) {
  return static_cast<int>(value * (1 << kBits) + (value < 0 ? -0.5 : 0.5));
}

struct ToRgb {
  int luma;
  int black;  // the Y of black
  int redOfCr;
  int greenOfCb;
  int greenOfCr;
  int blueOfCb;
};

// The JPEG standard's numbers have five decimals, and every decoder uses these.
constexpr ToRgb kJpeg = {Fixed(1), 0, Fixed(1.402), Fixed(-0.34414), Fixed(-0.71414), Fixed(1.772)};

ToRgb FactorsOf(const Ycc& ycc) {
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

std::uint8_t Clamped(int sum) {
  return static_cast<std::uint8_t>(std::clamp((sum + kHalf) >> kBits, 0, 255));
}

// Passes each pixel of the first three planes to `convert`, which changes it.
template <typename Convert>
void ForPixels(Picture* picture, const Convert& convert) {
  Plane& one = picture->channels[0].plane;
  for (int y = 0; y < one.Height(); ++y) {
    std::uint8_t* a = one.Row(y);
    std::uint8_t* b = picture->channels[1].plane.Row(y);
    std::uint8_t* c = picture->channels[2].plane.Row(y);
    for (int x = 0; x < one.Width(); ++x) convert(a + x, b + x, c + x);
  }
}

}  // namespace

void YccToRgb(Picture* picture) {
  const ToRgb factors = FactorsOf(picture->ycc);
  ForPixels(picture, [factors](std::uint8_t* a, std::uint8_t* b, std::uint8_t* c) {
    const int luma = (*a - factors.black) * factors.luma;
    const int cb = *b - kMiddle;
    const int cr = *c - kMiddle;
    *a = Clamped(luma + factors.redOfCr * cr);
    *b = Clamped(luma + factors.greenOfCb * cb + factors.greenOfCr * cr);
    *c = Clamped(luma + factors.blueOfCb * cb);
  });
  picture->model = Model::kRgb;
  picture->ycc = {};
}

void RgbToYcc(Picture* picture) {
  // One less than half: the largest sum must not become 256.
  constexpr int offset = (kMiddle << kBits) - 1;
  ForPixels(picture, [](std::uint8_t* a, std::uint8_t* b, std::uint8_t* c) {
    const int red = *a;
    const int green = *b;
    const int blue = *c;
    *a = Clamped(Fixed(0.299) * red + Fixed(0.587) * green + Fixed(0.114) * blue);
    *b = Clamped(Fixed(-0.16874) * red + Fixed(-0.33126) * green + Fixed(0.5) * blue + offset);
    *c = Clamped(Fixed(0.5) * red + Fixed(-0.41869) * green + Fixed(-0.08131) * blue + offset);
  });
  picture->model = Model::kYcc;
  picture->ycc = {};
}

}  // namespace tavithumb::maker
