// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/filter.h"

#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <tuple>

#include "system/paths.h"
#include "thumbs/kinds.h"

namespace tavithumb::apps::command {
namespace {

// The last components, as many as slashes and one more; all of them if there are fewer.
std::string LastComponents(const std::string& path, std::ptrdiff_t slashes) {
  std::size_t begin = path.size();
  for (; slashes >= 0 && begin != std::string::npos && begin > 0; --slashes) begin = path.rfind('/', begin - 1);
  return begin == std::string::npos || path[begin] != '/' ? path : path.substr(begin + 1);
}

bool Matches(std::string pattern, const std::string& path) {
  while (pattern.size() > 1 && pattern.back() == '/') pattern.pop_back();
  const bool isAbsolute = pattern.substr(0, 1) == "/";
  const std::string name = isAbsolute ? std::filesystem::path(AbsolutePath(path)).lexically_normal().string()
                                      : LastComponents(path, std::count(pattern.begin(), pattern.end(), '/'));
  return fnmatch(pattern.c_str(), name.c_str(), FNM_PATHNAME) == 0;
}

bool IsLater(const timespec& one, const timespec& other) {
  return std::tie(one.tv_sec, one.tv_nsec) > std::tie(other.tv_sec, other.tv_nsec);
}

// Nothing if `text` is not of this form, or not a date.
std::optional<std::time_t> ParseDate(const std::string& text, const char* form) {
  std::tm parts = {};
  const char* const end = strptime(text.c_str(), form, &parts);
  if (end == nullptr || *end != '\0') return std::nullopt;
  parts.tm_isdst = -1;
  const int day = parts.tm_mday;
  const std::time_t seconds = std::mktime(&parts);
  return parts.tm_mday == day ? std::optional(seconds) : std::nullopt;
}

}  // namespace

bool Filter::Takes(const std::string& name) const {
  return IsFilm(name) ? takesVideos : IsPhoto(name);
}

bool Filter::Excludes(const std::string& path) const {
  return std::any_of(excluded.begin(), excluded.end(),
                     [&path](const std::string& pattern) { return Matches(pattern, path); });
}

bool Filter::IsTooOld(const struct stat& record) const {
  return since && !IsLater(record.st_mtim, *since) && !IsLater(record.st_ctim, *since);
}

timespec ParseMoment(const std::string& text) {
  for (const char* form : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S"}) {
    if (const std::optional<std::time_t> seconds = ParseDate(text, form)) return {*seconds, 0};
  }
  struct stat record = {};
  if (stat(text.c_str(), &record) == 0) return record.st_mtim;
  throw std::invalid_argument("'" + text + "' is neither a date nor a file (" + std::generic_category().message(errno) +
                              "): use YYYY-MM-DD, 'YYYY-MM-DD HH:MM' or a FILE");
}

}  // namespace tavithumb::apps::command
