// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavi {

// The EA directories of all files of a folder lie in this directory of that folder, named like the files.
constexpr char kEARoot[] = ".tavi_ea";

// A path cut at its last slash. `folder` keeps that slash ("/", "photos/") and is "" for a bare name.
struct SplitPath {
  std::string folder;
  std::string name;
};

inline SplitPath Split(const std::string& path) {
  const std::size_t nameStart = path.rfind('/') + 1;  // 0 when there is no slash
  return {path.substr(0, nameStart), path.substr(nameStart)};
}

// A name that a directory entry can have.
inline bool IsEntryName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

}  // namespace tavi
