// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/memory_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <temp_dir.h>
#include <unistd.h>

namespace tavithumb::apps {
namespace {

TEST(MemoryFile, CanBeOpenedByItsPathUntilItIsGone) {
  std::string path;
  {
    const MemoryFile file({'a', 'b', '\0'});
    path = file.Path();
    EXPECT_EQ(test::ReadFile(path), std::string("ab\0", 3));
    EXPECT_EQ(test::ReadFile(path), std::string("ab\0", 3)) << "each time from its start";
  }
  EXPECT_EQ(FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)).Number(), -1);
}

TEST(MemoryFile, OfFixedSizeTakesNoMore) {
  const MemoryFile file = MemoryFile::OfFixedSize(3);
  const FileDescriptor opened(open(file.Path().c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(write(opened.Number(), "ab", 2), 2);
  EXPECT_EQ(pwrite(opened.Number(), "cd", 2, 3), -1);
  EXPECT_EQ(test::ReadFile(file.Path()), std::string("ab\0", 3));
}

}  // namespace
}  // namespace tavithumb::apps
