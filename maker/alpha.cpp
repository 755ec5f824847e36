// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "maker/resample.h"

namespace tavithumb::maker {
namespace {

constexpr int kOpaque = 255;

// colour * alpha / 255, rounded to the nearest integer. The divisor is odd, so there are no exact halves.
std::uint8_t Multiplied(int colour, int alpha) {
  const int product = colour * alpha + 128;
  return static_cast<std::uint8_t>((product + (product >> 8)) >> 8);
}

// colour * 255 / alpha, rounded. In floating point, since processors divide no vectors of integers; it is exact.
std::uint8_t Divided(int colour, int alpha) {
  const int product = (colour < alpha ? colour : alpha) * kOpaque;  // std::min() would not become vector instructions
  const float quotient = static_cast<float>(product) / static_cast<float>(alpha | static_cast<int>(alpha == 0));
  return static_cast<std::uint8_t>(static_cast<int>(quotient + 0.5F));  // NOLINT(bugprone-incorrect-roundings)
}

std::uint8_t OnWhite(int colour, int alpha) {
  return static_cast<std::uint8_t>(Multiplied(colour, alpha) + kOpaque - alpha);
}

std::uint8_t MultipliedOnWhite(int colour, int alpha) {
  return static_cast<std::uint8_t>(std::min(colour + kOpaque - alpha, kOpaque));
}

// Compilers turn loops of a fixed length over arrays of their own into vector instructions.
constexpr std::size_t kStep = 64;
using Samples = std::array<std::uint8_t, kStep>;

Samples Copied(const std::uint8_t* samples) {
  Samples copy;
  std::memcpy(copy.data(), samples, kStep);
  return copy;
}

// Combines each sample of the colours with its alpha, and what is behind the end of each row up to the next step.
template <typename Combine>
void ForColours(Picture* picture, const Combine& combine) {
  const Plane& alpha = picture->channels.back().plane;
  for (std::size_t i = 0; i + 1 < picture->channels.size(); ++i) {
    Plane* colour = &picture->channels[i].plane;
    for (int y = 0; y < colour->Height(); ++y) {
      for (std::size_t x = 0; x < static_cast<std::size_t>(colour->Width()); x += kStep) {
        Samples samples = Copied(colour->Row(y) + x);
        const Samples alphas = Copied(alpha.Row(y) + x);
        for (std::size_t k = 0; k < kStep; ++k) samples[k] = combine(samples[k], alphas[k]);
        std::memcpy(colour->Row(y) + x, samples.data(), kStep);
      }
    }
  }
}

}  // namespace

void Premultiply(Picture* picture) {
  if (!picture->hasAlpha || picture->isPremultiplied) return;
  ForColours(picture, [](int colour, int alpha) { return Multiplied(colour, alpha); });
  picture->isPremultiplied = true;
}

void Unpremultiply(Picture* picture) {
  if (!picture->hasAlpha || !picture->isPremultiplied) return;
  ForColours(picture, [](int colour, int alpha) { return Divided(colour, alpha); });
  picture->isPremultiplied = false;
}

void Flatten(Picture* picture) {
  if (!picture->hasAlpha) return;
  if (picture->isPremultiplied) {
    ForColours(picture, [](int colour, int alpha) { return MultipliedOnWhite(colour, alpha); });
  } else {
    ForColours(picture, [](int colour, int alpha) { return OnWhite(colour, alpha); });
  }
  picture->channels.pop_back();
  picture->hasAlpha = false;
  picture->isPremultiplied = false;
}

}  // namespace tavithumb::maker
