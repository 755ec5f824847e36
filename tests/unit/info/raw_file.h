// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tavithumb::test {

// A TIFF directory: each tag with its one 32-bit number.
using TiffDirectory = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

inline std::string LittleEndian(std::uint32_t number, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text.push_back(static_cast<char>(number >> (8 * i) & 0xFF));
  return text;
}

inline std::string Bytes(const TiffDirectory& directory) {
  const std::uint32_t longType = 4;
  std::string bytes = LittleEndian(static_cast<std::uint32_t>(directory.size()), 2);
  for (const auto& [tag, number] : directory) {
    bytes += LittleEndian(tag, 2) + LittleEndian(longType, 2) + LittleEndian(1, 4) + LittleEndian(number, 4);
  }
  return bytes + LittleEndian(0, 4);  // no further directory
}

// A camera raw file as Exiv2 sees it: a picture of 4000 x 3000 pixels in a directory of its own (without its pixels),
// and before it a preview of 160 x 120 grey pixels, as a TIFF. "NEF" and "CR2" differ in the maker's tag.
inline std::string RawFile(bool isCr2) {
  const std::uint32_t first = 16, second = first + 2 + 11 * 12 + 4, pixels = second + 2 + 4 * 12 + 4;
  const TiffDirectory preview = {
      {254, 1},       // reduced picture
      {256, 160},     // width
      {257, 120},     // height
      {258, 8},       // bits per sample
      {259, 1},       // not compressed
      {262, 1},       // black is zero
      {273, pixels},  // offset of the pixels
      {277, 1},       // samples per pixel
      {278, 120},     // rows
      {279, 19200},   // bytes
      {330, second},  // the full picture's directory
  };
  const TiffDirectory picture = {{254, 0}, {256, 4000}, {257, 3000}, {259, 34713}};
  const std::string mark = isCr2 ? std::string("CR\2\0", 4) : std::string(4, '\0');
  return std::string("II*\0", 4) + LittleEndian(first, 4) + mark + std::string(4, '\0') + Bytes(preview) +
         Bytes(picture) + std::string(160 * 120, '\x80');
}

}  // namespace tavithumb::test
