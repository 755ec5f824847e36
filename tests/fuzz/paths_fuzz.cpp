// SPDX-License-Identifier: GPL-3.0-or-later
// The path of a source and the name of an entry, in two lines: extension, folder, EA paths.
#include <tavi/sdk.h>
#include <tavithumb/util.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "fuzz.h"

namespace file = tavithumb::file;

extern "C" __attribute__((visibility("default"))) void syslog(int, const char*, ...) {}

namespace {

constexpr std::size_t bufferSize = 4096;

void RequireExtension(const std::string& path) {
  const std::string extension = file::GetFileExt(path);
  Require(std::none_of(extension.begin(), extension.end(), [](char c) { return c == '.' || (c >= 'A' && c <= 'Z'); }));
  Require(extension.size() <= path.size());
  Require(!tavithumb::IsSupportImage(path) || !tavithumb::IsSupportVideo(path));
}

void RequireFolder(const std::string& path) {
  const std::string folder = file::Dirname(path);
  Require(!folder.empty() && folder.size() < bufferSize);
  if (folder != ".") Require(path.compare(0, folder.size(), folder) == 0);
  if (folder.find_first_not_of('/') != folder.npos) Require(folder.back() != '/');
}

// In a buffer of exactly that size, so that an access beyond it is detected.
std::string EntryIn(std::size_t size, const std::string& source, const std::string& name) {
  std::vector<char> buffer(size, '?');
  if (TAVIEAPath(0, source.c_str(), name.c_str(), buffer.data(), size, 0) >= 0) return buffer.data();
  Require(errno == EINVAL || errno == ENAMETOOLONG);
  Require(std::all_of(buffer.begin(), buffer.end(), [](char c) { return c == '?'; }));
  return "";
}

// Below the source's own folder, in a directory named after the source.
void RequireEntry(const std::string& source, const std::string& name, const std::string& entry) {
  const std::size_t slash = source.rfind('/') + 1;
  const std::string directory = source.substr(0, slash) + ".tavi_ea/" + source.substr(slash);
  Require(entry == directory + "/" + name);
  for (const std::string& part : {source.substr(slash), name}) {
    Require(!part.empty() && part != "." && part != ".." && part.find('/') == part.npos);
  }
  std::vector<char> buffer(bufferSize);
  Require(TAVIEADirPath(0, source.c_str(), buffer.data(), buffer.size()) == 0 && buffer.data() == directory);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = TextOf(data, size).c_str();  // no file name contains a NUL
  const std::size_t end = text.find('\n');
  const std::string source = text.substr(0, end);
  const std::string name = end == text.npos ? "" : text.substr(end + 1);
  RequireExtension(source);
  RequireFolder(source);
  const std::string entry = EntryIn(bufferSize, source, name);
  Require(file::GetEAPath(source, name) == entry);
  const std::string temporary = file::GetEATmpPath(source, name);
  Require(temporary.empty() == entry.empty() && temporary.compare(0, entry.size(), entry) == 0);
  if (entry.empty()) return 0;
  RequireEntry(source, name, entry);
  Require(EntryIn(entry.size() + 1, source, name) == entry && EntryIn(entry.size(), source, name).empty());
  return 0;
}
