// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace tavi {

// The EA directories of all files of a folder are in this directory of that folder, named like the files.
constexpr char kEARoot[] = ".tavi_ea";

// A path cut at its last slash. `folder` keeps that slash ("/", "photos/") and is "" for a bare name.
struct SplitPath {
  std::string folder;
  std::string name;
};

inline SplitPath Split(const std::string& path) {
  const std::size_t nameStart = path.rfind('/') + 1;  // 0 if there is no slash
  return {path.substr(0, nameStart), path.substr(nameStart)};
}

// Whether a directory entry can have this name.
inline bool IsEntryName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// In a sticky, world-writable folder (such as /tmp), a directory is trusted only if it belongs to the superuser, the
// folder's owner or this process's user: the kernel's rule for links there.
inline bool IsTrusted(const struct stat& directory, const struct stat& folder) {
  constexpr mode_t shared = S_ISVTX | S_IWOTH;
  return (folder.st_mode & shared) != shared || directory.st_uid == 0 || directory.st_uid == folder.st_uid ||
         directory.st_uid == geteuid();
}

}  // namespace tavi
