// SPDX-License-Identifier: GPL-3.0-or-later
#include "fileop/staged_copy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <filesystem>
#include <string>
#include <vector>

#include "children.h"
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

}  // namespace
}  // namespace tavithumb::test
