// SPDX-License-Identifier: GPL-3.0-or-later
// The header block of an SCGI request.
#include <optional>

#include "fuzz.h"
#include "web/http_error.h"
#include "web/scgi.h"

namespace web = tavithumb::apps::web;

namespace {

std::string NetstringOf(const web::Variables& variables) {
  std::string block;
  for (const auto& [name, value] : variables) block += name + '\0' + value + '\0';
  return std::to_string(block.size()) + ":" + block + ",";
}

// The length, as far as `start` tells it; 0 if that does not start a netstring.
std::optional<std::size_t> LengthOf(std::string_view start) {
  try {
    return web::ScgiLength(start);
  } catch (const web::HttpError& error) {
    Require(error.Code() == web::kBadRequest);
    return 0;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = TextOf(data, size);
  const std::optional<std::size_t> length = LengthOf(text);
  for (std::size_t i = 0; i < size && i < 10; ++i) {
    const std::optional<std::size_t> earlier = LengthOf(std::string_view(text).substr(0, i));
    Require(!earlier || earlier == length);
  }
  web::Variables variables;
  try {
    variables = web::ParseScgi(text);
  } catch (const web::HttpError& error) {
    Require(error.Code() == web::kBadRequest);
    return 0;
  }
  Require(length == size);
  for (const auto& [name, value] : variables) {
    Require(!name.empty() && name.find('\0') == name.npos && value.find('\0') == value.npos);
  }
  Require(web::ParseScgi(NetstringOf(variables)) == variables);
  return 0;
}
