// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavithumb::apps::command {

// A line of a table. A name comes last: its width on a terminal is nobody's business.
using Row = std::vector<std::string>;

// The rows, all of as many cells as the first, as lines with aligned columns.
std::string Aligned(const std::vector<Row>& rows);

// "640x480"
std::string PixelSize(std::uint32_t width, std::uint32_t height);

}  // namespace tavithumb::apps::command
