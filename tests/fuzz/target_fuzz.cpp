// SPDX-License-Identifier: GPL-3.0-or-later
// A request: its method, the prefix, the types that the client accepts and the address, in four lines.
#include <tavithumb/libtavithumb.h>

#include "fuzz.h"
#include "system/text.h"
#include "web/http_error.h"
#include "web/target.h"

namespace web = tavithumb::apps::web;
using tavithumb::Thumb;
using tavithumb::apps::UrlEncoded;

namespace {

constexpr int storedOptions = Thumb::OPT_ALBUMEX_EA | Thumb::OPT_BROVIX_EA;
constexpr int askedOptions = Thumb::OPT_AVATAR | Thumb::OPT_ENABLE_GIF | Thumb::OPT_FALLBACK_SMALLER;

std::string TakeLine(std::string* rest) {
  const std::size_t end = rest->find('\n');
  const std::string line = rest->substr(0, end);
  rest->erase(0, end == rest->npos ? end : end + 1);
  return line;
}

std::string SizeOf(const tavithumb::apps::Size& size) {
  return size.IsBox() ? std::to_string(size.box.width) + "x" + std::to_string(size.box.height) : size.name;
}

// An address with the same meaning.
std::string AddressOf(const web::Target& target) {
  const char* const routes[] = {"/thumb", "/original", "/original", "/original", "/list", "/list"};
  std::string address = target.prefix + routes[static_cast<int>(target.route)];
  for (const std::string& name : target.path) address += "/" + UrlEncoded(name);
  if (target.route == web::Route::kDownload) return address + "?download=1";
  if (target.route == web::Route::kFacts) return address + "?facts=1";
  if (target.route == web::Route::kDates) return address + "?dates=1&after=" + UrlEncoded(target.after);
  if (target.route != web::Route::kThumb) return address;
  address += "?size=" + SizeOf(target.request.size) + "&rotate=" + std::to_string(target.request.quarterTurns);
  if ((target.request.options & Thumb::OPT_AVATAR) != 0) address += "&avatar=1";
  if ((target.request.options & Thumb::OPT_ENABLE_GIF) != 0) address += "&animate=1";
  if ((target.request.options & Thumb::OPT_FALLBACK_SMALLER) != 0) address += "&fallback=1";
  return address;
}

void RequireSafePath(const web::Target& target) {
  for (const std::string& name : target.path) {
    Require(!name.empty() && name != "." && name != "..");
    Require(name.find('/') == name.npos && name.find('\0') == name.npos);
  }
}

void RequireGoodRequest(const web::Target& target) {
  const tavithumb::apps::Request& request = target.request;
  const bool isThumb = target.route == web::Route::kThumb;
  Require(request.quarterTurns >= 0 && request.quarterTurns <= (isThumb ? 3 : 0));
  if (!isThumb) return Require(request.size.name.empty() && request.size.box.width == 0 && request.options == 0);
  const int stored = request.size.IsBox() ? int{Thumb::OPT_BROVIX_EA} : storedOptions;
  Require((request.options & ~askedOptions) == stored);
  if (!request.size.IsBox()) return Require(Thumb::strThumbSizeMap_.count(request.size.name) == 1);
  const auto& box = request.size.box;
  Require(box.width >= 1 && box.width <= 65535 && box.height >= 1 && box.height <= 65535);
  Require((request.options & Thumb::OPT_FALLBACK_SMALLER) == 0);
}

void RequireSame(const web::Target& one, const web::Target& other) {
  Require(one.route == other.route && one.prefix == other.prefix && one.path == other.path);
  Require(one.isHead == other.isHead && one.wantsHtml == other.wantsHtml);
  Require(one.after == other.after);
  Require(SizeOf(one.request.size) == SizeOf(other.request.size));
  Require(one.request.quarterTurns == other.request.quarterTurns && one.request.options == other.request.options);
  Require(one.request.acceptHeic == other.request.acceptHeic);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string rest = TextOf(data, size);
  web::Variables variables;
  for (const char* name : {"REQUEST_METHOD", "SCRIPT_NAME", "HTTP_ACCEPT"}) variables[name] = TakeLine(&rest);
  variables["REQUEST_URI"] = rest;
  const std::string& method = variables["REQUEST_METHOD"];
  const bool isAnswered = method == "GET" || method == "HEAD";
  web::Target target = {};
  try {
    target = web::ParseTarget(variables);
  } catch (const web::HttpError& error) {
    Require(isAnswered ? error.Code() == web::kBadRequest || error.Code() == web::kNotFound
                       : error.Code() == web::kMethodNotAllowed);
    return 0;
  }
  Require(isAnswered && target.isHead == (method == "HEAD"));
  RequireSafePath(target);
  RequireGoodRequest(target);
  variables["REQUEST_URI"] = AddressOf(target);
  RequireSame(target, web::ParseTarget(variables));
  return 0;
}
