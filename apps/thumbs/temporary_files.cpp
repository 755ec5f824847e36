// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/temporary_files.h"

#include <glob.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace tavithumb::apps {

std::string MakeScratchFolder(std::string pattern) {
  if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
  return pattern;
}

// setenv() is safe here: there is only one thread so far.
void UseScratchFolder(const std::string& folder) {
  setenv("TMPDIR", folder.c_str(), 1);                 // NOLINT(concurrency-mt-unsafe)
  setenv("MAGICK_TEMPORARY_PATH", folder.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
}

void RemovePreviews(pid_t process) {
  glob_t previews = {};
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the pattern has no "~"
  if (glob((file::GetPreviewTmpPrefix(process) + "*").c_str(), 0, nullptr, &previews) == 0) {
    for (std::size_t i = 0; i < previews.gl_pathc; ++i) unlink(previews.gl_pathv[i]);
  }
  globfree(&previews);
}

}  // namespace tavithumb::apps
