// SPDX-License-Identifier: GPL-3.0-or-later
// The header block of an SCGI request.
#include "fuzz.h"
#include "web/http_error.h"
#include "web/scgi.h"

namespace web = tavithumb::apps::web;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = TextOf(data, size);
  try {
    const web::Variables variables = web::ParseScgi(text);
    Require(web::ScgiLength(text) == text.size());
    for (const auto& [name, value] : variables) {
      Require(!name.empty() && name.find('\0') == name.npos && value.find('\0') == value.npos);
    }
  } catch (const web::HttpError& error) {
    Require(error.Code() == web::kBadRequest);
  }
  return 0;
}
