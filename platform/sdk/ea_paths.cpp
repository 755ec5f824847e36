// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <string>

#include "exported.h"
#include "sdk/ea_layout.h"

namespace tavi {
namespace {

bool PassesEARoot(const std::string& path) {
  return ("/" + path + "/").find("/" + std::string(kEARoot) + "/") != std::string::npos;
}

// There are no thumbnails of thumbnails: what lies in an EA directory has none of its own. A relative name is looked
// at together with the working directory.
bool LiesInEADirectory(const std::string& source) {
  if (PassesEARoot(source)) return true;
  char workingDirectory[PATH_MAX];
  return source.front() != '/' && getcwd(workingDirectory, sizeof workingDirectory) != nullptr &&
         PassesEARoot(workingDirectory);
}

std::optional<std::string> EADirectory(const std::string& source) {
  const SplitPath parts = Split(source);
  if (!IsEntryName(parts.name) || LiesInEADirectory(source)) return std::nullopt;
  return parts.folder + kEARoot + "/" + parts.name;
}

// A stranger who has made one of the two directories could lead what is written there to any place. What is not there
// yet can be trusted.
bool IsStrangers(const std::string& source, const std::string& eaDirectory) {
  const std::string folderPath = Split(source).folder;
  struct stat folder, root, directory;
  if (stat(folderPath.empty() ? "." : folderPath.c_str(), &folder) != 0) return false;
  if (lstat((folderPath + kEARoot).c_str(), &root) != 0) return false;
  if (!IsTrusted(root, folder)) return true;
  return lstat(eaDirectory.c_str(), &directory) == 0 && !IsTrusted(directory, root);
}

int Fail(int reason) {
  errno = reason;
  return -1;
}

int Give(const std::string& path, char* buffer, size_t size) {
  if (path.size() >= size) return Fail(ENAMETOOLONG);
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return 0;
}

}  // namespace
}  // namespace tavi

int TAVIEAPath(int, const char* source, const char* eaName, char* buffer, size_t size, int) {
  const std::optional<std::string> directory = tavi::EADirectory(source);
  if (!directory || !tavi::IsEntryName(eaName)) return tavi::Fail(EINVAL);
  return tavi::Give(*directory + "/" + eaName, buffer, size);
}

int TAVIEADirPath(int, const char* source, char* buffer, size_t size) {
  const std::optional<std::string> directory = tavi::EADirectory(source);
  if (!directory) return tavi::Fail(EINVAL);
  if (tavi::IsStrangers(source, *directory)) return tavi::Fail(EPERM);
  return tavi::Give(*directory, buffer, size);
}
