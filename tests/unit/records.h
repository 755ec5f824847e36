// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ostream>
#include <string>

#include "open_records.h"

namespace tavithumb::test {

// A record with facts as if read from an upright JPEG, for tests to change; its
// file is any that exists.
inline OpenInfo JpegRecord(std::uint32_t width, std::uint32_t height, ThumbDimension box,
                           const std::string& size = "big") {
  OpenInfo info("/", size, box);
  info.mimeType_ = "image/jpeg";
  info.width_ = width;
  info.height_ = height;
  info.good_ = true;
  return info;
}

}  // namespace tavithumb::test

namespace tavithumb {

inline bool operator==(const ThumbDimension& a, const ThumbDimension& b) {
  return a.width == b.width && a.height == b.height;
}

inline std::ostream& operator<<(std::ostream& out, const ThumbDimension& box) {
  return out << box.width << "x" << box.height;
}

}  // namespace tavithumb
