// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace tavithumb::apps::command {

// How long it takes to make all thumbnails of a photo with this name, by its extension, and of this many bytes: in
// milliseconds of one core of a small machine. Others are faster or slower, but the ratios stay about the same.
double ExpectedMilliseconds(const std::string& name, std::uint64_t bytes);

// The same for the file at `path`; that of an empty one if it can't be examined.
double ExpectedMilliseconds(const std::string& path);

}  // namespace tavithumb::apps::command
