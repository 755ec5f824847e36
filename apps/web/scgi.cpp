// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/scgi.h"

#include "system/numbers.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

// The number of digits of maxScgiHeaders.
constexpr std::size_t maxDigits = 5;

HttpError Malformed() {
  return {kBadRequest, "the web server's request is not valid SCGI"};
}

// Removes the text up to the next NUL, and the NUL, from `rest`.
std::string TakeText(std::string_view* rest) {
  const std::size_t end = rest->find('\0');
  if (end == std::string_view::npos) throw Malformed();
  std::string text(rest->substr(0, end));
  rest->remove_prefix(end + 1);
  return text;
}

}  // namespace

std::optional<std::size_t> ScgiLength(std::string_view start) {
  const std::string_view digits = start.substr(0, maxDigits + 1);
  const std::size_t colon = digits.find(':');
  if (digits.substr(0, colon).find_first_not_of("0123456789") != std::string_view::npos) throw Malformed();
  if (colon == std::string_view::npos && digits.size() <= maxDigits) return std::nullopt;
  if (colon == std::string_view::npos) throw Malformed();
  const std::optional<std::size_t> length = ParseNumber<std::size_t>(digits.substr(0, colon));
  if (!length || *length > maxScgiHeaders) throw Malformed();
  return colon + 1 + *length + 1;
}

Variables ParseScgi(std::string_view netstring) {
  const std::optional<std::size_t> length = ScgiLength(netstring);
  if (!length || *length != netstring.size() || netstring.back() != ',') throw Malformed();
  std::string_view rest = netstring.substr(netstring.find(':') + 1);
  rest.remove_suffix(1);
  Variables variables;
  while (!rest.empty()) {
    const std::string name = TakeText(&rest);
    const std::string value = TakeText(&rest);
    if (name.empty() || !variables.emplace(name, value).second) throw Malformed();
  }
  return variables;
}

}  // namespace tavithumb::apps::web
