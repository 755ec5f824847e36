// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "maker/plan.h"

namespace tavithumb::apps::convert {

// The left and upper edge of a crop, in pixels.
struct Offset {
  std::uint32_t left = 0;
  std::uint32_t top = 0;
};

// What the library asks ImageMagick's convert for: one still thumbnail of the first picture of a file.
struct Conversion {
  std::string source;
  std::string destination;
  maker::Type type = maker::Type::kJpeg;  // by the destination's extension
  maker::Size size;                       // what the decoded picture is scaled to fit, or the size of the crop
  std::optional<Offset> crop;             // not scaled, but cropped here
  maker::Orientation orientation;         // applied last
};

// Parses the arguments with which the library runs convert, from the program's path on; nothing for any others. Names
// that convert would not take literally are among the others.
std::optional<Conversion> ParseArguments(const std::vector<std::string>& arguments);

}  // namespace tavithumb::apps::convert
