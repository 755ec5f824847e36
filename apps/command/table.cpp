// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/table.h"

#include <algorithm>

namespace tavithumb::apps::command {

std::string Aligned(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string table;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) table += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    table += row.back() + "\n";
  }
  return table;
}

std::string PixelSize(std::uint32_t width, std::uint32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace tavithumb::apps::command
