// SPDX-License-Identifier: GPL-3.0-or-later
#include "matching.h"

#include <regex>

namespace tavithumb::test {

bool Matches(const std::string& text, const std::string& pattern) {
  return std::regex_match(text, std::regex(pattern));
}

bool HasMatch(const std::string& text, const std::string& pattern) {
  return std::regex_search(text, std::regex(pattern));
}

std::string Replaced(const std::string& text, const std::string& pattern, const std::string& replacement) {
  return std::regex_replace(text, std::regex(pattern), replacement);
}

}  // namespace tavithumb::test
