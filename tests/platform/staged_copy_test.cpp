// SPDX-License-Identifier: GPL-3.0-or-later
#include "fileop/staged_copy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "children.h"
#include "common/temporary_names.h"
#include "refused_calls.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Listing = std::vector<std::string>;

std::string StagedName(const std::string& folder) {
  for (const std::string& name : Names(folder)) {
    if (name.rfind(".tavi_copy.", 0) == 0) return name;
  }
  return "";
}

TEST(StagedCopy, ThatHasDisappearedLeavesThePreviousDestinationUnderItsOneName) {
  for (const std::vector<long>& missing : {std::vector<long>{}, {SYS_renameat2}, {SYS_renameat2, SYS_linkat}}) {
    SCOPED_TRACE(missing.size());
    TempDir folder;
    WriteFile(folder / "source", "new");
    WriteFile(folder / "target", "old");
    CheckInProcess([&] {
      RefuseCalls(missing, EINVAL);
      tavi::StagedCopy copy{tavi::Location(folder / "target")};
      ASSERT_TRUE(copy.Fill((folder / "source").c_str()));
      ASSERT_TRUE(fs::remove(folder / StagedName(folder.Path())));
      EXPECT_FALSE(copy.PublishRevocably());
      EXPECT_EQ(errno, ENOENT);
      EXPECT_EQ(Names(folder.Path()), (Listing{"source", "target"}));
      EXPECT_EQ(ReadFile(folder / "target"), "old");
    });
  }
}

// The names that were renamed to something else or removed.
std::vector<std::string> Vanished(int events) {
  std::vector<std::string> names;
  alignas(inotify_event) char data[4096];
  const ssize_t size = read(events, data, sizeof data);
  for (ssize_t at = 0; at < size;) {
    const auto* const event = reinterpret_cast<const inotify_event*>(data + at);
    names.emplace_back(event->name);
    at += static_cast<ssize_t>(sizeof *event + event->len);
  }
  return names;
}

TEST(StagedCopy, LeavesNoMomentWithoutADestinationWhereThereAreHardLinks) {
  TempDir folder;
  WriteFile(folder / "source", "new");
  WriteFile(folder / "target", "old");
  CheckInProcess([&] {
    if (!RefuseCalls({SYS_renameat2}, EINVAL)) return;
    const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_NE(inotify_add_watch(events, folder.Path().c_str(), IN_MOVED_FROM | IN_DELETE), -1);
    tavi::StagedCopy copy{tavi::Location(folder / "target")};
    ASSERT_TRUE(copy.Fill((folder / "source").c_str()));
    const std::string staged = StagedName(folder.Path());
    ASSERT_TRUE(copy.PublishRevocably());
    EXPECT_EQ(Vanished(events), Listing{staged});
    EXPECT_EQ(ReadFile(folder / "target"), "new");
  });
}

TEST(TemporaryNames, AreGivenUpWhenEachExists) {
  int attempts = 0;
  const auto exists = [&attempts](const char*) {
    ++attempts;
    errno = EEXIST;
    return false;
  };
  EXPECT_EQ(tavi::CreateTemporary("prefix.", exists), "");
  EXPECT_EQ(attempts, 100);
}

}  // namespace
}  // namespace tavithumb::test
