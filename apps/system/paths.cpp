// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/paths.h"

#include <filesystem>

namespace tavithumb::apps {

std::string AbsolutePath(const std::string& name) {
  if (name.empty() || name.front() == '/') return name;
  const std::string folder = std::filesystem::current_path();
  return folder + (folder.back() == '/' ? "" : "/") + name;
}

std::string BaseName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace tavithumb::apps
