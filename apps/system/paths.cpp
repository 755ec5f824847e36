// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/paths.h"

#include <filesystem>

namespace tavithumb::apps {

std::string AbsolutePath(const std::string& name) {
  if (name.empty() || name.front() == '/') return name;
  return JoinPath(std::filesystem::current_path(), name);
}

std::string JoinPath(const std::string& folder, const std::string& name) {
  return folder + (folder.back() == '/' ? "" : "/") + name;
}

std::string BaseName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace tavithumb::apps
