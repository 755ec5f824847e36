// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/shared_buffer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace tavithumb::apps {
namespace {

TEST(SharedBuffer, ReturnsWhatAForkedProcessHasWritten) {
  const SharedBuffer buffer(100000);
  EXPECT_EQ(buffer.Content(), "");
  const std::vector<std::uint8_t> content(100000, 'x');
  const pid_t child = fork();
  if (child == 0) _exit(buffer.Write(content) ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(buffer.Content(), std::string(100000, 'x'));
  EXPECT_TRUE(buffer.Write({'a', '\0', 'b'}));
  EXPECT_EQ(buffer.Content(), std::string("a\0b", 3));
}

TEST(SharedBuffer, TakesNoMoreThanFits) {
  const SharedBuffer buffer(3);
  EXPECT_TRUE(buffer.Write({'a', 'b', 'c'}));
  EXPECT_FALSE(buffer.Write({'d', 'e', 'f', 'g'}));
  EXPECT_EQ(buffer.Content(), "abc");
}

}  // namespace
}  // namespace tavithumb::apps
