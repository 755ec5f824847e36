// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "maker/declined.h"
#include "maker/picture.h"

namespace tavithumb::maker {

// What a decoded picture shows, by its samples: for pictures of the scene that the helpers in pictures.h draw.

struct Colour {
  int red;
  int green;
  int blue;
};

// A place in a picture: 0, 0 is its top left corner, 1, 1 is its bottom right corner.
struct Place {
  double x;
  double y;
};

inline int SampleAt(const Channel& channel, Place place) {
  const int x = std::min(static_cast<int>(place.x * channel.width), channel.plane.Width() - 1);
  const int y = std::min(static_cast<int>(place.y * channel.height), channel.plane.Height() - 1);
  return channel.plane.Row(y)[x];
}

inline int Clamped(double value) {
  return static_cast<int>(std::lround(std::clamp(value, 0.0, 255.0)));
}

inline Colour ColourOfYcc(const Ycc& ycc, double luma, double cb, double cr) {
  const double y = ycc.isFullRange ? luma : (luma - 16) * 255 / 219;
  const double scale = ycc.isFullRange ? 1 : 255.0 / 224;
  const double red = y + 2 * (1 - ycc.redWeight) * (cr - 128) * scale;
  const double blue = y + 2 * (1 - ycc.blueWeight) * (cb - 128) * scale;
  const double green = (y - ycc.redWeight * red - ycc.blueWeight * blue) / (1 - ycc.redWeight - ycc.blueWeight);
  return {Clamped(red), Clamped(green), Clamped(blue)};
}

inline Colour ColourAt(const Picture& picture, Place place) {
  const std::vector<Channel>& channels = picture.channels;
  const int first = SampleAt(channels[0], place);
  if (picture.model == Model::kGray) return {first, first, first};
  const int second = SampleAt(channels[1], place);
  const int third = SampleAt(channels[2], place);
  if (picture.model == Model::kRgb) return {first, second, third};
  return ColourOfYcc(picture.ycc, first, second, third);
}

inline int Distance(const Colour& a, const Colour& b) {
  return std::max({std::abs(a.red - b.red), std::abs(a.green - b.green), std::abs(a.blue - b.blue)});
}

// Places of the scene, far from its edges.
struct Spot {
  Place place;
  Colour colour;
  const char* name;
};
inline constexpr Spot kSpots[] = {{{0.43, 0.43}, {255, 0, 0}, "red"},
                                  {{0.13, 0.20}, {0, 0, 0}, "black"},
                                  {{0.75, 0.25}, {0, 255, 0}, "lime"},
                                  {{0.25, 0.93}, {0, 0, 255}, "blue"},
                                  {{0.75, 0.75}, {255, 255, 0}, "yellow"}};

// The names of the spots that have the wrong colour, by more than `most` in a channel.
inline std::string WrongSpots(const Picture& picture, int most) {
  std::string wrong;
  for (const Spot& spot : kSpots) {
    const Colour colour = ColourAt(picture, spot.place);
    if (Distance(colour, spot.colour) <= most) continue;
    wrong += std::string(spot.name) + " is " + std::to_string(colour.red) + " " + std::to_string(colour.green) + " " +
             std::to_string(colour.blue) + "; ";
  }
  return wrong;
}

// Why `act` declines; fails if it doesn't.
template <typename Act>
Reason ReasonFor(Act act) {
  try {
    act();
  } catch (const Declined& declined) {
    return declined.Why();
  }
  ADD_FAILURE() << "not declined";
  return Reason::kUnknownType;
}

}  // namespace tavithumb::maker
