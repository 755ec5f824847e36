// SPDX-License-Identifier: GPL-3.0-or-later
// The address of a request, its path and its query, and what the client accepts: three lines.
#include "fuzz.h"
#include "web/http_error.h"
#include "web/target.h"

namespace web = tavithumb::apps::web;

namespace {

std::string TakeLine(std::string* rest) {
  const std::size_t end = rest->find('\n');
  const std::string line = rest->substr(0, end);
  rest->erase(0, end == rest->npos ? end : end + 1);
  return line;
}

// An address that must mean the same.
std::string AddressOf(const web::Target& target) {
  const char* const routes[] = {"/thumb", "/original", "/list"};
  std::string address = target.prefix + routes[static_cast<int>(target.route)];
  for (const std::string& name : target.path) address += "/" + web::UrlEncoded(name);
  if (target.route != web::Route::kThumb) return address;
  const tavithumb::apps::Size& size = target.request.size;
  address +=
      "?size=" + (size.IsBox() ? std::to_string(size.box.width) + "x" + std::to_string(size.box.height) : size.name);
  return address + "&rotate=" + std::to_string(target.request.quarterTurns);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string rest = TextOf(data, size);
  web::Variables variables = {{"REQUEST_METHOD", "GET"}};
  variables["SCRIPT_NAME"] = TakeLine(&rest);
  variables["HTTP_ACCEPT"] = TakeLine(&rest);
  variables["REQUEST_URI"] = rest;
  try {
    const web::Target target = web::ParseTarget(variables);
    for (const std::string& name : target.path) {
      Require(!name.empty() && name != "." && name != ".." && name.find('/') == name.npos &&
              name.find('\0') == name.npos);
    }
    Require(target.request.quarterTurns >= 0 && target.request.quarterTurns <= 3);
    variables["REQUEST_URI"] = AddressOf(target);
    const web::Target same = web::ParseTarget(variables);
    Require(same.route == target.route && same.path == target.path && same.prefix == target.prefix);
  } catch (const web::HttpError& error) {
    Require(error.Code() == web::kBadRequest || error.Code() == web::kNotFound);
  }
  return 0;
}
