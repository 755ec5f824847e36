// SPDX-License-Identifier: GPL-3.0-or-later
#include "http/conditions.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <optional>

#include "http/http_date.h"

namespace tavi {
namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing here writes it
  return value == nullptr ? "" : value;
}

void SkipSpaces(std::string_view* text) {
  text->remove_prefix(std::min(text->find_first_not_of(" \t"), text->size()));
}

// Between the members of a list, some of which may be empty.
void SkipSeparators(std::string_view* text) {
  text->remove_prefix(std::min(text->find_first_not_of(" \t,"), text->size()));
}

// The opaque part of the entity tag that the text begins with, quotes included, which is taken off the text; "" when
// there is none.
std::string_view TakeEntityTag(std::string_view* text) {
  if (text->substr(0, 2) == "W/") text->remove_prefix(2);
  if (text->empty() || text->front() != '"') return "";
  const std::size_t end = text->find('"', 1);
  if (end == std::string_view::npos) return "";
  const std::string_view tag = text->substr(0, end + 1);
  text->remove_prefix(end + 1);
  return tag;
}

// Weak comparison: "W/" makes no difference.
bool HasTag(std::string_view list, std::string_view etag) {
  SkipSpaces(&list);
  if (list == "*") return true;
  SkipSeparators(&list);
  while (!list.empty()) {
    const std::string_view tag = TakeEntityTag(&list);
    if (tag.empty()) return false;
    if (tag == etag) return true;
    SkipSpaces(&list);
    if (!list.empty() && list.front() != ',') return false;
    SkipSeparators(&list);
  }
  return false;
}

bool IsUnchanged(const FileRequest& request, const FileVersion& version, std::int64_t now) {
  if (!request.ifNoneMatch.empty()) return HasTag(request.ifNoneMatch, version.etag);
  const std::optional<std::int64_t> since = ParseHttpDate(request.ifModifiedSince, now);
  return since && version.modified <= *since;
}

// Strong comparison: a weak tag never fits; a date has to be the very one.
bool AllowsRange(const FileRequest& request, const FileVersion& version, std::int64_t now) {
  if (request.ifRange.empty() || request.ifRange == version.etag) return true;
  return ParseHttpDate(request.ifRange, now) == version.modified;
}

// A decimal number; what is too large for one is the largest there is. Nothing for any other text.
std::optional<std::uint64_t> ParsePosition(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  std::uint64_t number = 0;
  const bool isTooLarge = std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc();
  return isTooLarge ? std::numeric_limits<std::uint64_t>::max() : number;
}

constexpr Decision kUnsatisfiable = {Outcome::kUnsatisfiable, 0, 0};

// The last `length` bytes.
Decision Suffix(std::uint64_t length, std::uint64_t size) {
  if (length == 0 || size == 0) return kUnsatisfiable;
  const std::uint64_t sent = std::min(length, size);
  return {Outcome::kPart, size - sent, sent};
}

// One range of bytes; anything else is not understood, which is allowed.
std::optional<Decision> ParseRange(std::string_view range, std::uint64_t size) {
  constexpr std::string_view unit = "bytes=";
  const std::size_t dash = range.find('-');
  if (range.substr(0, unit.size()) != unit || dash == std::string_view::npos) return std::nullopt;
  const std::string_view firstText = range.substr(unit.size(), dash - unit.size()), lastText = range.substr(dash + 1);
  const std::optional<std::uint64_t> first = ParsePosition(firstText), last = ParsePosition(lastText);
  if (firstText.empty()) return last ? std::optional(Suffix(*last, size)) : std::nullopt;
  if (!first || (!last && !lastText.empty()) || (last && *last < *first)) return std::nullopt;
  if (*first >= size) return kUnsatisfiable;
  const std::uint64_t end = last && *last < size ? *last + 1 : size;
  return Decision{Outcome::kPart, *first, end - *first};
}

}  // namespace

FileRequest RequestOfEnvironment() {
  return {!Variable("GATEWAY_INTERFACE").empty(), Variable("REQUEST_METHOD"), Variable("HTTP_IF_NONE_MATCH"),
          Variable("HTTP_IF_MODIFIED_SINCE"),     Variable("HTTP_IF_RANGE"),  Variable("HTTP_RANGE")};
}

Decision Decide(const FileRequest& request, const FileVersion& version, std::int64_t now) {
  const Decision whole = {Outcome::kWhole, 0, version.size};
  const bool isGet = request.method == "GET";
  if (!request.isCgi || (!isGet && request.method != "HEAD")) return whole;
  if (IsUnchanged(request, version, now)) return {Outcome::kNotModified, 0, 0};
  if (!isGet || request.range.empty() || !AllowsRange(request, version, now)) return whole;
  return ParseRange(request.range, version.size).value_or(whole);
}

}  // namespace tavi
