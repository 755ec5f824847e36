// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/input.h"
#include "maker/picture.h"
#include "pictures.h"

namespace tavithumb::test {

using File = std::vector<std::uint8_t>;
// At which every decoder gives all pixels.
constexpr maker::Size kWhole = {65535, 65535};
using OpenFunction = std::unique_ptr<maker::Decoder> (*)(const maker::Input&);

inline maker::Bytes BytesOf(const File& file) {
  return {file.data(), file.size()};
}

inline File ReadSample(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline maker::Picture Decode(OpenFunction open, const File& file, maker::Size atLeast = {1, 1}) {
  const maker::Input input(BytesOf(file));
  return open(input)->Decode(atLeast);
}

// Nothing if the file is decoded.
inline std::optional<maker::Reason> WhyDeclined(OpenFunction open, const File& file) {
  try {
    Decode(open, file);
  } catch (const maker::Declined& declined) {
    return declined.Why();
  }
  return std::nullopt;
}

inline maker::Size SizeOf(const maker::Picture& picture) {
  return picture.channels.at(0).plane.Dimensions();
}

// One sample of each channel.
inline std::vector<int> PixelAt(const maker::Picture& picture, int x, int y) {
  std::vector<int> samples;
  for (const maker::Channel& channel : picture.channels) samples.push_back(channel.plane.Row(y)[x]);
  return samples;
}

// All pixels as R, G, B and alpha.
inline File RgbaOf(const maker::Picture& picture) {
  const bool isGray = picture.model == maker::Model::kGray;
  const maker::Size size = SizeOf(picture);
  File bytes;
  bytes.reserve(4 * static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height));
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      for (std::size_t c = 0; c < 3; ++c) bytes.push_back(picture.channels[isGray ? 0 : c].plane.Row(y)[x]);
      bytes.push_back(picture.hasAlpha ? picture.channels.back().plane.Row(y)[x] : std::uint8_t{255});
    }
  }
  return bytes;
}

// The first picture of a file as ImageMagick sees it: R, G, B and alpha.
inline File ReferenceRgba(const std::string& path, const std::vector<std::string>& options = {}) {
  std::vector<std::string> command = {"/usr/bin/convert", path + "[0]"};
  command.insert(command.end(), options.begin(), options.end());
  command.insert(command.end(), {"-depth", "8", "RGBA:-"});
  const std::string bytes = RunTool(command);
  return {bytes.begin(), bytes.end()};
}

// The largest difference of two pictures; transparent pixels have no colour. 256 if their sizes differ.
inline int LargestDifference(const File& a, const File& b) {
  if (a.size() != b.size()) return 256;
  int largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const std::size_t alpha = i | 3;
    if (a[alpha] == 0 && b[alpha] == 0) continue;
    largest = std::max(largest, std::abs(a[i] - b[i]));
  }
  return largest;
}

// Decodes the file cut off at many places: each time there is a picture of the right size or kDamaged, never a crash.
// Returns how many were pictures.
inline int DecodeCutOff(OpenFunction open, const File& file, std::size_t step) {
  const maker::Size whole = SizeOf(Decode(open, file));
  int pictures = 0;
  for (std::size_t length = 0; length < file.size(); length += step) {
    // A copy of its own, so that a sanitizer sees reads beyond the end.
    const File start(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
    try {
      EXPECT_EQ(SizeOf(Decode(open, start)), whole) << length;
      ++pictures;
    } catch (const maker::Declined& declined) {
      EXPECT_EQ(declined.Why(), maker::Reason::kDamaged) << length << ": " << declined.what();
    }
  }
  return pictures;
}

// Changes single bytes of the file at many places: never a crash.
inline void DecodeDamaged(OpenFunction open, const File& file, std::size_t step) {
  for (std::size_t i = 0; i < file.size(); i += step) {
    for (const int change : {0x01, 0x80, 0xff}) {
      File damaged = file;
      damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ change);
      WhyDeclined(open, damaged);
    }
  }
}

}  // namespace tavithumb::test
