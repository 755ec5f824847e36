// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavithumb::apps::command {

// A row of a table. Names come last, so that their width on a terminal does not matter.
using Row = std::vector<std::string>;

// The rows as lines with aligned columns. All rows have as many cells as the first.
std::string Aligned(const std::vector<Row>& rows);

// "640x480"
std::string PixelSize(std::uint32_t width, std::uint32_t height);

}  // namespace tavithumb::apps::command
