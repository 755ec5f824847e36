// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/encode/huffman.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <queue>
#include <utility>
#include <vector>

namespace tavithumb::maker {
namespace {

constexpr std::size_t kMaxBits = 16;

struct Code {
  std::size_t symbol = 0;
  std::size_t bits = 0;
};

// The symbol that is to get the code of ones only. It is rarer than all others, so that its code is the longest.
constexpr std::size_t kReserved = 256;

// The codes of the symbols that have a weight, and of the reserved one.
std::vector<Code> CodesFor(const Weights& weights) {
  std::vector<Code> codes;
  std::vector<std::size_t> parents;
  using Node = std::pair<std::uint64_t, std::size_t>;
  std::priority_queue<Node, std::vector<Node>, std::greater<>> nodes;
  const auto add = [&](std::uint64_t weight) {
    nodes.emplace(weight, parents.size());
    parents.push_back(0);
  };
  for (std::size_t symbol = 0; symbol <= kReserved; ++symbol) {
    const std::uint32_t weight = symbol == kReserved ? 0 : weights[symbol];
    if (weight == 0 && symbol != kReserved) continue;
    codes.push_back({symbol, 0});
    add(weight);
  }
  while (nodes.size() > 1) {
    const Node rarest = nodes.top();
    nodes.pop();
    const Node second = nodes.top();
    nodes.pop();
    parents[rarest.second] = parents[second.second] = parents.size();
    add(rarest.first + second.first);
  }
  std::vector<std::size_t> depths(parents.size());
  for (std::size_t i = parents.size() - 1; i-- > 0;) depths[i] = depths[parents[i]] + 1;
  for (std::size_t i = 0; i < codes.size(); ++i) codes[i].bits = depths[i];
  return codes;
}

bool HasTooLongCodes(const std::vector<Code>& codes) {
  return std::any_of(codes.begin(), codes.end(), [](const Code& code) { return code.bits > kMaxBits; });
}

}  // namespace

HuffmanTable BestTable(Weights weights) {
  std::vector<Code> codes = CodesFor(weights);
  while (HasTooLongCodes(codes)) {
    for (std::uint32_t& weight : weights) weight = weight == 0 ? 0 : weight / 2 + 1;
    codes = CodesFor(weights);
  }
  std::stable_sort(codes.begin(), codes.end(), [](const Code& a, const Code& b) { return a.bits < b.bits; });
  codes.pop_back();  // the reserved one
  HuffmanTable table;
  for (std::size_t i = 0; i < codes.size(); ++i) {
    ++table.counts[codes[i].bits];
    table.symbols[i] = static_cast<std::uint8_t>(codes[i].symbol);
  }
  return table;
}

}  // namespace tavithumb::maker
