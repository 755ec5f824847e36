// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "common/c_boundary.h"
#include "exported.h"
#include "sdk/ea_layout.h"

namespace tavi {
namespace {

bool PassesEARoot(const std::string& path) {
  return ("/" + path + "/").find("/" + std::string(kEARoot) + "/") != std::string::npos;
}

// Prefixes a relative path with the working directory.
std::string Absolute(const std::string& path) {
  char workingDirectory[PATH_MAX];
  if (path.front() == '/' || getcwd(workingDirectory, sizeof workingDirectory) == nullptr) return path;
  return workingDirectory + ("/" + path);
}

// The path with all links resolved, or "" if it doesn't exist. Preserves errno: that is not a failure.
std::string Resolved(const std::string& path) {
  const int before = errno;
  char resolved[PATH_MAX];
  const bool exists = realpath(path.c_str(), resolved) != nullptr;
  errno = before;
  return exists ? resolved : "";
}

// There are no thumbnails of thumbnails: a file in an EA directory has no EA path, whichever path, link or working
// directory leads to it.
bool IsInEADirectory(const std::string& source) {
  const std::string path = Absolute(source);
  if (PassesEARoot(path)) return true;
  const std::string resolved = Resolved(path);
  return PassesEARoot(resolved.empty() ? Resolved(Split(path).folder) : resolved);
}

std::optional<std::string> EADirectory(const std::string& source) {
  const SplitPath parts = Split(source);
  if (!IsEntryName(parts.name) || IsInEADirectory(source)) return std::nullopt;
  return parts.folder + kEARoot + "/" + parts.name;
}

// Another user who owns one of the two directories could redirect writes to any place. A directory that doesn't exist
// yet can be trusted.
bool IsAnotherUsers(const std::string& source, const std::string& eaDirectory) {
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

int Return(const std::string& path, char* buffer, size_t size) {
  if (path.size() >= size) return Fail(ENAMETOOLONG);
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return 0;
}

int EAPath(const char* source, const char* eaName, char* buffer, size_t size) {
  const std::optional<std::string> directory = EADirectory(source);
  if (!directory || !IsEntryName(eaName)) return Fail(EINVAL);
  return Return(*directory + "/" + eaName, buffer, size);
}

int EADirPath(const char* source, char* buffer, size_t size) {
  const std::optional<std::string> directory = EADirectory(source);
  if (!directory) return Fail(EINVAL);
  if (IsAnotherUsers(source, *directory)) return Fail(EPERM);
  return Return(*directory, buffer, size);
}

}  // namespace
}  // namespace tavi

int TAVIEAPath(int, const char* source, const char* eaName, char* buffer, size_t size, int) {
  return tavi::AtCBoundary(-1, [=] { return tavi::EAPath(source, eaName, buffer, size); });
}

int TAVIEADirPath(int, const char* source, char* buffer, size_t size) {
  return tavi::AtCBoundary(-1, [=] { return tavi::EADirPath(source, buffer, size); });
}
