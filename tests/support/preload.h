// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tavithumb::test {

// The environment in which a program loads the library at `path` before all others. LD_PRELOAD alone would take no path
// with a space.
inline std::vector<std::string> Preloading(const std::filesystem::path& path) {
  return {"LD_PRELOAD=" + path.filename().string(), "LD_LIBRARY_PATH=" + path.parent_path().string(),
          "ASAN_OPTIONS=verify_asan_link_order=0"};
}

}  // namespace tavithumb::test
