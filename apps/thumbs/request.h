// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace tavithumb::apps {

// A requested size: one of the library's names, or a box in pixels.
struct Size {
  std::string name;
  ThumbDimension box;

  bool IsBox() const { return name.empty(); }
};

// "medium", "800x600", "256". Sides are 1 to 65535. Throws std::invalid_argument with a message for people.
Size ParseSize(const std::string& text);

// A decimal integer, which may be negative: -1 is 3, so that each turn has one stored thumbnail. Throws
// std::invalid_argument with a message for people.
int ParseQuarterTurns(const std::string& text);

// 1 to 100. Throws std::invalid_argument with a message for people.
int ParseQuality(const std::string& text);

// Seconds since the epoch, at least 1. Throws std::invalid_argument with a message for people.
long ParseTime(const std::string& text);

// The request of one run for every file, or of one web request.
struct Request {
  Size size;
  int quarterTurns = 0;
  int options = 0;  // the sum of Thumb::Option
  bool acceptHeic = false;
  bool byLibrary = false;       // thumbnails are made by the library's tools, not by the maker
  int quality = 80;             // of JPEG thumbnails that the maker makes, 1 to 100
  bool mayBeTemporary = false;  // where nothing can be stored, a temporary file is an answer too
};

}  // namespace tavithumb::apps
