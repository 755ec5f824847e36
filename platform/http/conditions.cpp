// SPDX-License-Identifier: GPL-3.0-or-later
#include "http/conditions.h"

#include <strings.h>

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

// Removes and returns the entity tag at the beginning of the text, with quotes and "W/"; "" if there is none.
std::string_view TakeEntityTag(std::string_view* text) {
  const std::size_t quote = text->substr(0, 2) == "W/" ? 2 : 0;
  const std::size_t end = text->find('"', quote + 1);
  if (text->substr(quote, 1) != "\"" || end == std::string_view::npos) return "";
  const std::string_view tag = text->substr(0, end + 1);
  text->remove_prefix(end + 1);
  return tag;
}

// Whether two tags are the same: strongly, or regardless of "W/".
using Comparison = bool (*)(std::string_view, std::string_view);

bool AreStronglyEqual(std::string_view tag, std::string_view etag) {
  return tag == etag;
}

bool AreWeaklyEqual(std::string_view tag, std::string_view etag) {
  return tag == etag || (tag.substr(0, 2) == "W/" && tag.substr(2) == etag);
}

// Whether a list contains this tag. A malformed list contains none.
bool HasTag(std::string_view list, std::string_view etag, Comparison areEqual) {
  SkipSpaces(&list);
  if (list == "*") return true;
  bool found = false;
  for (SkipSeparators(&list); !list.empty(); SkipSeparators(&list)) {
    const std::string_view tag = TakeEntityTag(&list);
    SkipSpaces(&list);
    if (tag.empty() || (!list.empty() && list.front() != ',')) return false;
    found = found || areEqual(tag, etag);
  }
  return found;
}

// Whether the client requires a version other than this one.
bool IsAnother(const FileRequest& request, const FileVersion& version, std::int64_t now) {
  if (!request.ifMatch.empty()) return !HasTag(request.ifMatch, version.etag, AreStronglyEqual);
  const std::optional<std::int64_t> since = ParseHttpDate(request.ifUnmodifiedSince, now);
  return since && version.modified > *since;
}

bool IsUnchanged(const FileRequest& request, const FileVersion& version, std::int64_t now) {
  if (!request.ifNoneMatch.empty()) return HasTag(request.ifNoneMatch, version.etag, AreWeaklyEqual);
  const std::optional<std::int64_t> since = ParseHttpDate(request.ifModifiedSince, now);
  return since && version.modified <= *since;
}

// Whether the date identifies this content: a file that was last changed within the second of its date may have been
// changed twice in it.
bool IsDateStrong(const FileVersion& version, std::int64_t now) {
  return version.modified < version.changed && version.modified < now;
}

// Weak validators never match, and a date has to be exactly the file's.
bool AllowsRange(const FileRequest& request, const FileVersion& version, std::int64_t now) {
  if (request.ifRange.empty() || AreStronglyEqual(request.ifRange, version.etag)) return true;
  return IsDateStrong(version, now) && ParseHttpDate(request.ifRange, now) == version.modified;
}

// A decimal number, or the largest possible one for any larger. Nothing for any other text.
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

// Units are case-insensitive.
bool BeginsWith(std::string_view range, std::string_view unit) {
  return range.size() >= unit.size() && strncasecmp(range.data(), unit.data(), unit.size()) == 0;
}

// One range of bytes. Nothing for any other range, which a server may ignore.
std::optional<Decision> ParseRange(std::string_view range, std::uint64_t size) {
  constexpr std::string_view unit = "bytes=";
  const std::size_t dash = range.find('-');
  if (dash == std::string_view::npos || !BeginsWith(range, unit)) return std::nullopt;
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
  FileRequest request;
  request.isCgi = !Variable("GATEWAY_INTERFACE").empty();
  request.method = Variable("REQUEST_METHOD");
  request.ifMatch = Variable("HTTP_IF_MATCH");
  request.ifUnmodifiedSince = Variable("HTTP_IF_UNMODIFIED_SINCE");
  request.ifNoneMatch = Variable("HTTP_IF_NONE_MATCH");
  request.ifModifiedSince = Variable("HTTP_IF_MODIFIED_SINCE");
  request.ifRange = Variable("HTTP_IF_RANGE");
  request.range = Variable("HTTP_RANGE");
  return request;
}

Decision Decide(const FileRequest& request, const FileVersion& version, std::int64_t now) {
  const Decision whole = {Outcome::kWhole, 0, version.size};
  const bool isGet = request.method == "GET";
  if (!request.isCgi || (!isGet && request.method != "HEAD")) return whole;
  if (IsAnother(request, version, now)) return {Outcome::kAnother, 0, 0};
  if (IsUnchanged(request, version, now)) return {Outcome::kNotModified, 0, 0};
  if (!isGet || request.range.empty() || !AllowsRange(request, version, now)) return whole;
  return ParseRange(request.range, version.size).value_or(whole);
}

}  // namespace tavi
