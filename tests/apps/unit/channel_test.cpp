// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/channel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <temp_dir.h>

namespace tavithumb::test {
namespace {

TEST(Channel, PassesAnOpenFileOn) {
  const auto [ours, theirs] = apps::OpenChannel();
  const TempDir folder;
  WriteFile(folder / "file", "content");
  const apps::FileDescriptor file(open((folder / "file").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(apps::SendDescriptor(ours.Number(), file.Number()));
  const apps::FileDescriptor received = apps::ReceiveDescriptor(theirs.Number());
  char content[8] = {};
  EXPECT_EQ(read(received.Number(), content, sizeof content), 7);
  EXPECT_STREQ(content, "content");
  EXPECT_NE(received.Number(), file.Number());
  EXPECT_EQ(fcntl(received.Number(), F_GETFD), FD_CLOEXEC);
}

TEST(Channel, ReportsThatTheOtherEndIsClosed) {
  auto [ours, theirs] = apps::OpenChannel();
  theirs = apps::FileDescriptor();
  EXPECT_FALSE(apps::SendDescriptor(ours.Number(), STDIN_FILENO));
  EXPECT_FALSE(apps::ReceiveDescriptor(ours.Number()).IsOpen());
}

TEST(Channel, IgnoresAMessageWithoutAFile) {
  const auto [ours, theirs] = apps::OpenChannel();
  ASSERT_EQ(send(ours.Number(), "x", 1, MSG_NOSIGNAL), 1);
  EXPECT_FALSE(apps::ReceiveDescriptor(theirs.Number()).IsOpen());
}

}  // namespace
}  // namespace tavithumb::test
