// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/temporary_names.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "support/path.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

constexpr std::string_view kWorkEntry = "TAVIFILETMP_THUMB";
constexpr std::string_view kVarTmp = "/var/tmp/";
constexpr std::string_view kOwn = "tavithumb_";
constexpr std::string_view kPreview = "/tmp/thumb.";
constexpr std::string_view kFrames = "/var/tmp/convert_thumbnail__";
constexpr std::string_view kDigits = "0123456789";

std::string Seconds() {
  return std::to_string(static_cast<long>(std::time(nullptr)));
}

// "_<process id>_<seconds>"
std::string ProcessAndTime() {
  return "_" + std::to_string(getpid()) + "_" + Seconds();
}

// These remove a part of a text; a text without that part is left unchanged.

bool DropPrefix(std::string_view* text, std::string_view prefix) {
  if (text->substr(0, prefix.size()) != prefix) return false;
  text->remove_prefix(prefix.size());
  return true;
}

bool DropSuffix(std::string_view* text, std::string_view suffix) {
  if (text->size() < suffix.size() || text->substr(text->size() - suffix.size()) != suffix) return false;
  text->remove_suffix(suffix.size());
  return true;
}

bool DropNumber(std::string_view* text) {
  const std::size_t length = std::min(text->find_first_not_of(kDigits), text->size());
  text->remove_prefix(length);
  return length != 0;
}

// "_<digits>" at the end.
bool DropMark(std::string_view* text) {
  const std::size_t mark = text->find_last_not_of(kDigits);
  if (mark == std::string_view::npos || mark + 1 == text->size() || (*text)[mark] != '_') return false;
  text->remove_suffix(text->size() - mark);
  return true;
}

int DropMarks(std::string_view* text, int limit) {
  int count = 0;
  while (count < limit && DropMark(text)) ++count;
  return count;
}

// The quarter turns in the name of a work entry; nothing for any other name.
std::optional<int> TurnsOfWorkEntry(std::string_view name) {
  if (!DropPrefix(&name, kWorkEntry)) return std::nullopt;
  if (!DropSuffix(&name, ".gif") && !DropSuffix(&name, ".png") && !DropSuffix(&name, ".jpg")) return std::nullopt;
  if (name.empty()) return 0;
  if (!DropPrefix(&name, "_r")) return std::nullopt;
  const int sign = DropPrefix(&name, "-") ? -1 : 1;
  if (name != "1" && name != "2" && name != "3") return std::nullopt;
  return sign * (name.front() - '0');
}

bool IsPreview(std::string_view path) {
  if (!DropPrefix(&path, kPreview)) return false;
  for (int part = 0; part < 3; ++part) {
    if (!DropNumber(&path) || !DropPrefix(&path, ".")) return false;
  }
  return !path.empty() && path.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string_view::npos;
}

// A third mark indicates a decoded JPEG that still has to be rotated.
bool IsWorkFile(std::string_view path) {
  if (!DropPrefix(&path, kVarTmp) || !DropPrefix(&path, kOwn)) return false;
  return DropMarks(&path, 3) >= 2 && TurnsOfWorkEntry(path);
}

bool IsFrames(std::string_view path) {
  if (!DropPrefix(&path, kFrames) || path.size() < 2 || path.find('/') != std::string_view::npos) return false;
  return kDigits.find(path.front()) != std::string_view::npos;
}

}  // namespace

std::string WorkEntryName(const std::string& rotateSuffix, const std::string& extension) {
  return std::string(kWorkEntry) + rotateSuffix + extension;
}

std::string DecodedPath(const std::string& destination) {
  return destination + "_" + Seconds();
}

// The random number only separates calls of one process within a second.
std::string PreviewPath() {
  return file::GetPreviewTmpPrefix(getpid()) + Seconds() + "." +
         std::to_string(std::rand());  // NOLINT(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe)
}

std::string FramesPath(const std::string& source) {
  return std::string(kFrames) + Seconds() + Basename(source);
}

namespace file {

std::string GetEATmpPath(const std::string& sourcePath, const std::string& eaName) {
  const std::string path = GetEAPath(sourcePath, eaName);
  return path.empty() ? "" : path + ProcessAndTime();
}

std::string GetVarTmpPath(const std::string& tag) {
  return std::string(kVarTmp) + std::string(kOwn) + tag + ProcessAndTime();
}

std::string GetPreviewTmpPrefix(pid_t process) {
  return std::string(kPreview) + std::to_string(process) + ".";
}

bool IsTemporaryFile(const std::string& path) {
  return IsPreview(path) || IsWorkFile(path) || IsFrames(path);
}

// A name that begins with the library's own prefix belongs to a raw photo on a volume without EA writes: it has the
// marks of the work file and those of the preview that is extracted for it.
std::optional<TemporaryEntry> ParseTemporaryEntry(const std::string& eaName) {
  std::string_view entry = eaName;
  const bool isOwn = DropPrefix(&entry, kOwn);
  const int marks = DropMarks(&entry, isOwn ? 4 : 2);
  if (isOwn && marks != 4) return std::nullopt;
  if (const std::optional<int> turns = TurnsOfWorkEntry(entry)) return TemporaryEntry{"", *turns};
  if (isOwn || marks == 0) return std::nullopt;
  return TemporaryEntry{std::string(entry), 0};
}

}  // namespace file
}  // namespace tavithumb
