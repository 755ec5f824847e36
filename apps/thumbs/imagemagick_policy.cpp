// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/imagemagick_policy.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace tavithumb::apps {
namespace {

constexpr char kVariable[] = "MAGICK_CONFIGURE_PATH";

}  // namespace

// The build tree has the layout of the installed files.
std::string DefaultPolicyFolder() {
  const char* const named = std::getenv(kVariable);  // NOLINT(concurrency-mt-unsafe): before there is a second thread
  if (named != nullptr && *named != '\0') return named;
  return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "share/tavithumb/imagemagick";
}

std::string FindPolicy(const std::string& folder) {
  std::error_code error;
  const fs::path found = fs::canonical(folder, error);
  return !error && fs::is_regular_file(found / "policy.xml", error) ? found.string() : "";
}

void UsePolicy(const std::string& folder) {
  setenv(kVariable, folder.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): before there is a second thread
}

}  // namespace tavithumb::apps
