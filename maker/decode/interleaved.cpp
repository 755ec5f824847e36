// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/decode/interleaved.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

// This file is compiled once for each kind of vector instructions; the processor's best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "maker/decode/interleaved.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tavithumb::maker::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Rows = std::array<std::uint8_t*, 4>;

// Pixels from `start` on, one by one.
template <std::size_t kChannels>
void SplitRest(const std::uint8_t* pixels, std::size_t start, std::size_t count, const Rows& rows) {
  for (std::size_t x = start; x < count; ++x) {
    for (std::size_t c = 0; c < kChannels; ++c) rows[c][x] = pixels[x * kChannels + c];
  }
}

#if HWY_TARGET == HWY_SCALAR

void Split(const std::uint8_t* pixels, std::size_t channels, std::size_t count, const Rows& rows) {
  if (channels == 2) SplitRest<2>(pixels, 0, count, rows);
  if (channels == 3) SplitRest<3>(pixels, 0, count, rows);
  if (channels == 4) SplitRest<4>(pixels, 0, count, rows);
}

#else

void Split2(const std::uint8_t* pixels, std::size_t count, const Rows& rows) {
  const hn::ScalableTag<std::uint8_t> tag;
  const std::size_t step = hn::Lanes(tag);
  std::size_t x = 0;
  for (; x + step <= count; x += step) {
    hn::Vec<decltype(tag)> first;
    hn::Vec<decltype(tag)> second;
    hn::LoadInterleaved2(tag, pixels + 2 * x, first, second);
    hn::StoreU(first, tag, rows[0] + x);
    hn::StoreU(second, tag, rows[1] + x);
  }
  SplitRest<2>(pixels, x, count, rows);
}

void Split3(const std::uint8_t* pixels, std::size_t count, const Rows& rows) {
  const hn::ScalableTag<std::uint8_t> tag;
  const std::size_t step = hn::Lanes(tag);
  std::size_t x = 0;
  for (; x + step <= count; x += step) {
    hn::Vec<decltype(tag)> first;
    hn::Vec<decltype(tag)> second;
    hn::Vec<decltype(tag)> third;
    hn::LoadInterleaved3(tag, pixels + 3 * x, first, second, third);
    hn::StoreU(first, tag, rows[0] + x);
    hn::StoreU(second, tag, rows[1] + x);
    hn::StoreU(third, tag, rows[2] + x);
  }
  SplitRest<3>(pixels, x, count, rows);
}

void Split4(const std::uint8_t* pixels, std::size_t count, const Rows& rows) {
  const hn::ScalableTag<std::uint8_t> tag;
  const std::size_t step = hn::Lanes(tag);
  std::size_t x = 0;
  for (; x + step <= count; x += step) {
    hn::Vec<decltype(tag)> first;
    hn::Vec<decltype(tag)> second;
    hn::Vec<decltype(tag)> third;
    hn::Vec<decltype(tag)> fourth;
    hn::LoadInterleaved4(tag, pixels + 4 * x, first, second, third, fourth);
    hn::StoreU(first, tag, rows[0] + x);
    hn::StoreU(second, tag, rows[1] + x);
    hn::StoreU(third, tag, rows[2] + x);
    hn::StoreU(fourth, tag, rows[3] + x);
  }
  SplitRest<4>(pixels, x, count, rows);
}

void Split(const std::uint8_t* pixels, std::size_t channels, std::size_t count, const Rows& rows) {
  if (channels == 2) Split2(pixels, count, rows);
  if (channels == 3) Split3(pixels, count, rows);
  if (channels == 4) Split4(pixels, count, rows);
}

#endif

}  // namespace tavithumb::maker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace tavithumb::maker {

HWY_EXPORT(Split);

Picture BlankPicture(Model model, bool hasAlpha, Size size) {
  Picture picture;
  picture.model = model;
  picture.hasAlpha = hasAlpha;
  picture.storedSize = size;
  const int colours = model == Model::kGray ? 1 : model == Model::kCmyk ? 4 : 3;
  for (int i = 0; i < colours + (hasAlpha ? 1 : 0); ++i) {
    Channel channel{Plane(size), static_cast<double>(size.width), static_cast<double>(size.height)};
    picture.channels.push_back(std::move(channel));
  }
  return picture;
}

void SplitRow(const std::uint8_t* pixels, int count, int x, int y, Picture* picture) {
  const std::size_t channels = picture->channels.size();
  std::array<std::uint8_t*, 4> rows = {};
  for (std::size_t c = 0; c < channels; ++c) rows[c] = picture->channels[c].plane.Row(y) + x;
  if (channels == 1) {
    std::memcpy(rows[0], pixels, static_cast<std::size_t>(count));
  } else {
    HWY_DYNAMIC_DISPATCH(Split)(pixels, channels, static_cast<std::size_t>(count), rows);
  }
}

}  // namespace tavithumb::maker

#endif
