// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/memory_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <temp_dir.h>

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

}  // namespace
}  // namespace tavithumb::apps
