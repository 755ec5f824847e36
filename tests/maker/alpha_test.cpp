// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "maker/resample.h"

namespace tavithumb::maker {
namespace {

Channel Filled(Size size, int value) {
  Channel channel = {Plane(size), static_cast<double>(size.width), static_cast<double>(size.height)};
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) channel.plane.Row(y)[x] = static_cast<std::uint8_t>(value);
  }
  return channel;
}

// Every colour, across, with every alpha, down.
Picture AllColoursAndAlphas() {
  Picture picture;
  picture.model = Model::kGray;
  picture.hasAlpha = true;
  for (const bool isAlpha : {false, true}) {
    Channel channel = Filled({256, 256}, 0);
    for (int y = 0; y < 256; ++y) {
      for (int x = 0; x < 256; ++x) channel.plane.Row(y)[x] = static_cast<std::uint8_t>(isAlpha ? y : x);
    }
    picture.channels.push_back(std::move(channel));
  }
  return picture;
}

template <typename Expected>
void ExpectColours(const Picture& picture, const Expected& expected) {
  for (int alpha = 0; alpha < 256; ++alpha) {
    for (int colour = 0; colour < 256; ++colour) {
      ASSERT_EQ(picture.channels[0].plane.Row(alpha)[colour], expected(colour, alpha)) << colour << " with " << alpha;
    }
  }
}

int Rounded(double value) {
  return static_cast<int>(std::lround(value));
}

TEST(Alpha, MultipliesEveryColourExactly) {
  Picture picture = AllColoursAndAlphas();
  Premultiply(&picture);
  EXPECT_TRUE(picture.isPremultiplied);
  ExpectColours(picture, [](int colour, int alpha) { return Rounded(colour * alpha / 255.0); });
}

TEST(Alpha, DividesEveryColourExactly) {
  Picture picture = AllColoursAndAlphas();
  picture.isPremultiplied = true;
  Unpremultiply(&picture);
  EXPECT_FALSE(picture.isPremultiplied);
  ExpectColours(picture,
                [](int colour, int alpha) { return alpha == 0 ? 0 : std::min(255, Rounded(colour * 255.0 / alpha)); });
}

TEST(Alpha, ReturnsTheColoursAfterMultiplyingAndDividing) {
  Picture picture = AllColoursAndAlphas();
  Premultiply(&picture);
  Unpremultiply(&picture);
  for (const int alpha : {0, 1, 2, 3, 51, 128, 254, 255}) {
    for (int colour = 0; colour < 256; ++colour) {
      const int back = picture.channels[0].plane.Row(alpha)[colour];
      if (alpha == 0) {
        EXPECT_EQ(back, 0);
      } else {
        EXPECT_LE(std::abs(back - colour), Rounded(127.5 / alpha)) << colour << " with " << alpha;
      }
    }
  }
}

TEST(Alpha, FlattensOntoWhite) {
  Picture picture = AllColoursAndAlphas();
  Flatten(&picture);
  EXPECT_FALSE(picture.hasAlpha);
  EXPECT_EQ(picture.channels.size(), 1U);
  ExpectColours(picture, [](int colour, int alpha) { return Rounded((colour * alpha + 255 * (255 - alpha)) / 255.0); });
}

TEST(Alpha, FlattensPremultipliedColoursOntoWhite) {
  Picture picture = AllColoursAndAlphas();
  picture.isPremultiplied = true;
  Flatten(&picture);
  EXPECT_FALSE(picture.hasAlpha);
  EXPECT_FALSE(picture.isPremultiplied);
  ExpectColours(picture, [](int colour, int alpha) { return std::min(255, colour + 255 - alpha); });
}

TEST(Alpha, CombinesEachColourOfThree) {
  const struct {
    int colour[3];
    int alpha;
    int premultiplied[3];
    int flat[3];
  } rows[] = {
      {{255, 128, 0}, 255, {255, 128, 0}, {255, 128, 0}},
      {{255, 128, 0}, 128, {128, 64, 0}, {255, 191, 127}},
      {{10, 20, 30}, 0, {0, 0, 0}, {255, 255, 255}},
  };
  for (const auto& row : rows) {
    Picture one;
    Picture other;
    for (Picture* picture : {&one, &other}) {
      picture->hasAlpha = true;
      for (const int value : {row.colour[0], row.colour[1], row.colour[2], row.alpha}) {
        picture->channels.push_back(Filled({3, 2}, value));
      }
    }
    Premultiply(&one);
    Flatten(&other);
    ASSERT_EQ(one.channels.size(), 4U);
    ASSERT_EQ(other.channels.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(one.channels[i].plane.Row(1)[2], row.premultiplied[i]) << "alpha " << row.alpha << ", channel " << i;
      EXPECT_EQ(other.channels[i].plane.Row(1)[2], row.flat[i]) << "alpha " << row.alpha << ", channel " << i;
    }
    EXPECT_EQ(one.channels[3].plane.Row(1)[2], row.alpha);
  }
}

TEST(Alpha, LeavesPicturesWithoutIt) {
  Picture picture;
  picture.model = Model::kGray;
  picture.channels.push_back(Filled({2, 2}, 77));
  Premultiply(&picture);
  Unpremultiply(&picture);
  Flatten(&picture);
  ASSERT_EQ(picture.channels.size(), 1U);
  EXPECT_EQ(picture.channels[0].plane.Row(1)[1], 77);
}

TEST(Alpha, MultipliesAndDividesOnlyOnce) {
  Picture picture = AllColoursAndAlphas();
  Unpremultiply(&picture);
  ExpectColours(picture, [](int colour, int) { return colour; });
  Premultiply(&picture);
  Premultiply(&picture);
  ExpectColours(picture, [](int colour, int alpha) { return Rounded(colour * alpha / 255.0); });
}

}  // namespace
}  // namespace tavithumb::maker
