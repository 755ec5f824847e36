// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace tavithumb::apps {

// A size as typed: one of the library's names, or else a box in pixels.
struct Size {
  std::string name;
  ThumbDimension box;

  bool IsBox() const { return name.empty(); }
};

// "medium", "800x600", "256". Sides are 1 to 65535. Throws std::invalid_argument with a sentence for people.
Size ParseSize(const std::string& text);

// A whole decimal number, maybe negative. Throws std::invalid_argument with a sentence for people.
int ParseQuarterTurns(const std::string& text);

// Seconds since the epoch, at least 1. Throws std::invalid_argument with a sentence for people.
long ParseTime(const std::string& text);

// What is asked for every file of one run.
struct Request {
  Size size;
  int quarterTurns = 0;
  int options = 0;  // the sum of Thumb::Option
  bool acceptHeic = false;
};

}  // namespace tavithumb::apps
