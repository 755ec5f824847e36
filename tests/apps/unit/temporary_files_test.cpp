// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/temporary_files.h"

#include <gtest/gtest.h>
#include <tavithumb/util.h>
#include <temp_dir.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace tavithumb::apps {
namespace {

TEST(Previews, OfOneProcessAreRemoved) {
  const pid_t process = getpid(), other = getppid();
  const std::string first = file::GetPreviewTmpPrefix(process) + "1", second = file::GetPreviewTmpPrefix(process) + "2";
  const std::string others = file::GetPreviewTmpPrefix(other) + "1";
  for (const std::string& path : {first, second, others}) test::WriteFile(path, "preview");
  RemovePreviews(process);
  EXPECT_FALSE(test::Exists(first));
  EXPECT_FALSE(test::Exists(second));
  EXPECT_TRUE(test::Exists(others));
  RemovePreviews(process);
  unlink(others.c_str());
}

}  // namespace
}  // namespace tavithumb::apps
