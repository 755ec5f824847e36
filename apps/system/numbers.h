// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace tavithumb::apps {

// Parses the whole of `text` as a decimal integer; a leading '-' is valid only for a signed `Number`. Nothing for any
// other text, and for a number out of range.
template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return number;
}

}  // namespace tavithumb::apps
