// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/suggestion.h"

#include <algorithm>
#include <cstddef>

namespace tavithumb::apps {
namespace {

constexpr std::size_t longest = 64;  // bytes of a word that may be mistyped

// How many letters have to be inserted, removed, replaced or swapped with their neighbours to get from one word to the
// other.
std::size_t Distance(const std::string& from, const std::string& to) {
  std::vector<std::vector<std::size_t>> edits(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      if (i == 0 || j == 0) {
        edits[i][j] = i + j;
        continue;
      }
      const bool isSame = from[i - 1] == to[j - 1];
      edits[i][j] = std::min({edits[i - 1][j] + 1, edits[i][j - 1] + 1, edits[i - 1][j - 1] + (isSame ? 0 : 1)});
      const bool isSwapped = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (isSwapped) edits[i][j] = std::min(edits[i][j], edits[i - 2][j - 2] + 1);
    }
  }
  return edits[from.size()][to.size()];
}

}  // namespace

std::string Suggestion(const std::string& word, const std::vector<std::string>& choices) {
  if (word.empty() || word.size() > longest || choices.empty()) return "";
  const auto closest =
      std::min_element(choices.begin(), choices.end(), [&word](const std::string& one, const std::string& other) {
        return Distance(word, one) < Distance(word, other);
      });
  const bool isSimilar = 3 * Distance(word, *closest) <= std::max(word.size(), closest->size());
  return isSimilar ? " (did you mean '" + *closest + "'?)" : "";
}

}  // namespace tavithumb::apps
