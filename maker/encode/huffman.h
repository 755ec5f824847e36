// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>

namespace tavithumb::maker {

// A Huffman table as JPEG files have it.
struct HuffmanTable {
  std::array<std::uint8_t, 17> counts = {};    // of the codes that have 1 to 16 bits
  std::array<std::uint8_t, 256> symbols = {};  // from the shortest code to the longest
};

// How often each symbol occurs, in any unit; one that doesn't occur gets no code.
using Weights = std::array<std::uint32_t, 256>;

// The table that needs the fewest bits, or nearly so: no code has more than 16, and none consists of ones only.
HuffmanTable BestTable(Weights weights);

}  // namespace tavithumb::maker
