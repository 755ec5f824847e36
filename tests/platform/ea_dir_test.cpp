// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tavi/sdk.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "children.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Listing = std::vector<std::string>;

int MakeDir(const std::string& eaDir) {
  errno = 0;
  return TAVIEAMKDir(1, eaDir.c_str());
}

TEST(EAMKDir, GivesBothDirectoriesTheModeOfTheSourcesFolderWhateverTheUmask) {
  for (const mode_t mode : {0755u, 0700u, 0777u, 0750u, 01777u, 02775u}) {
    for (const mode_t mask : {0u, 022u, 0777u}) {
      SCOPED_TRACE(testing::Message() << std::oct << mode << " under umask " << mask);
      TempDir folder;
      ASSERT_EQ(chmod(folder.Path().c_str(), mode), 0);
      const mode_t before = umask(mask);
      const int result = MakeDir(folder / ".tavi_ea/a.jpg");
      umask(before);
      EXPECT_EQ(result, 0);
      EXPECT_EQ(Names(folder.Path()), Listing{".tavi_ea"});
      EXPECT_EQ(Names(folder / ".tavi_ea"), Listing{"a.jpg"});
      EXPECT_EQ(Names(folder / ".tavi_ea/a.jpg"), Listing{});
      EXPECT_EQ(ModeOf(folder / ".tavi_ea"), mode);
      EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), mode);
    }
  }
}

TEST(EAMKDir, GivesBothDirectoriesTheOwnerOfTheSourcesFolder) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  TempDir folder;
  ASSERT_EQ(chown(folder.Path().c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 02775), 0);
  ASSERT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  for (const char* name : {".tavi_ea", ".tavi_ea/a.jpg"}) {
    SCOPED_TRACE(name);
    const struct stat facts = Facts(folder / name);
    EXPECT_EQ(facts.st_uid, 1234u);
    EXPECT_EQ(facts.st_gid, 5678u);
    EXPECT_EQ(facts.st_mode & 07777u, 02775u);
  }
}

TEST(EAMKDir, WorksForOneWhoCannotGiveDirectoriesAway) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make a folder of somebody else's";
  TempDir folder;
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  CheckAsOrdinaryUser([&] {
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), 0777u);
    EXPECT_EQ(Facts(folder / ".tavi_ea/a.jpg").st_uid, geteuid());
  });
}

TEST(EAMKDir, FailsAndLeavesNothingWhenTheSuperuserCannotGiveTheDirectoryAway) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make a folder of somebody else's";
  TempDir folder;
  ASSERT_EQ(chown(folder.Path().c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  TempDir notes;
  CheckInProcess([&] {
    if (unshare(CLONE_NEWUSER) != 0) {
      WriteFile(notes / "skip", "");
      return;
    }
    std::ofstream("/proc/self/uid_map") << "0 0 1";  // the folder's owner does not exist in here
    EXPECT_NE(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(errno, EINVAL);
  });
  if (Exists(notes / "skip")) GTEST_SKIP() << "needs user namespaces";
  EXPECT_EQ(Names(folder.Path()), Listing{});
}

TEST(EAMKDir, LeavesAnExistingRootAsItIs) {
  TempDir folder;
  ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
  fs::create_directory(folder / ".tavi_ea");
  ASSERT_EQ(chmod((folder / ".tavi_ea").c_str(), 0711), 0);
  EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  EXPECT_EQ(ModeOf(folder / ".tavi_ea"), 0711u);
  EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), 0755u);
}

TEST(EAMKDir, LeavesAnExistingDirectoryAndItsEntriesAsTheyAre) {
  TempDir folder;
  ASSERT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  WriteFile(folder / ".tavi_ea/a.jpg/THUMB", "thumbnail");
  ASSERT_EQ(chmod((folder / ".tavi_ea/a.jpg").c_str(), 0711), 0);
  EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  EXPECT_EQ(Names(folder / ".tavi_ea/a.jpg"), Listing{"THUMB"});
  EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), 0711u);
}

TEST(EAMKDir, KeepsTheDirectoriesOfAFoldersFilesSideBySide) {
  TempDir folder;
  EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  EXPECT_EQ(MakeDir(folder / ".tavi_ea/ b\n\xFF.jpg"), 0);
  EXPECT_EQ(Names(folder / ".tavi_ea"), (Listing{" b\n\xFF.jpg", "a.jpg"}));
}

TEST(EAMKDir, WorksForARelativePath) {
  TempDir folder;
  fs::create_directory(folder / "sub");
  CheckInProcess([&] {
    ASSERT_EQ(chdir(folder.Path().c_str()), 0);
    EXPECT_EQ(MakeDir(".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(MakeDir("sub/.tavi_ea/b.jpg"), 0);
  });
  EXPECT_TRUE(fs::is_directory(folder / ".tavi_ea/a.jpg"));
  EXPECT_TRUE(fs::is_directory(folder / "sub/.tavi_ea/b.jpg"));
}

TEST(EAMKDir, ReachesTheSourcesFolderThroughALink) {
  TempDir folder;
  fs::create_directory(folder / "real");
  fs::create_directory_symlink("real", folder / "link");
  EXPECT_EQ(MakeDir(folder / "link/.tavi_ea/a.jpg"), 0);
  EXPECT_TRUE(fs::is_directory(folder / "real/.tavi_ea/a.jpg"));
}

TEST(EAMKDir, NeedsNoRightToListTheFolderOrWhatItMakes) {
  TempDir folder;
  if (geteuid() == 0) {
    ASSERT_EQ(chown(folder.Path().c_str(), 65534, 65534), 0);
  }
  ASSERT_EQ(chmod(folder.Path().c_str(), 0333), 0);
  CheckAsOrdinaryUser([&] {
    umask(0777);
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), 0333u);
  });
  for (const char* name : {"", ".tavi_ea", ".tavi_ea/a.jpg"}) {
    if (Exists(folder / name)) {
      ASSERT_EQ(chmod((folder / name).c_str(), 0755), 0);  // so that it can be removed
    }
  }
}

TEST(EAMKDir, FailsWhenSomethingThatIsNoDirectoryIsInTheWay) {
  for (const std::string place : {".tavi_ea", ".tavi_ea/a.jpg"}) {
    for (const std::string thing : {"file", "link to a directory", "dangling link"}) {
      SCOPED_TRACE(thing + " at " + place);
      TempDir folder;
      fs::create_directories((folder / place).substr(0, (folder / place).rfind('/')));
      fs::create_directory(folder / "elsewhere");
      if (thing == "file") {
        WriteFile(folder / place, "in the way");
      } else {
        fs::create_directory_symlink(folder / (thing == "dangling link" ? "missing" : "elsewhere"), folder / place);
      }
      EXPECT_NE(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
      EXPECT_EQ(errno, ENOTDIR);
      EXPECT_EQ(Names(folder / "elsewhere"), Listing{});
      EXPECT_EQ(Names(folder.Path()), (Listing{".tavi_ea", "elsewhere"}));
      EXPECT_FALSE(fs::is_directory(fs::symlink_status(folder / place)));
    }
  }
}

TEST(EAMKDir, MakesNothingButEADirectories) {
  TempDir folder;
  fs::create_directory(folder / ".tavi_ea");
  for (const char* path : {"", "/", "photo", "photo/a.jpg", ".tavi_ea", ".tavi_ea/", ".tavi_ea/.", ".tavi_ea/..",
                           ".tavi_ea/a.jpg/", ".tavi_ea/a.jpg/THUMB"}) {
    SCOPED_TRACE(path);
    EXPECT_NE(MakeDir(folder / path), 0);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(Names(folder.Path()), Listing{".tavi_ea"});
  EXPECT_EQ(Names(folder / ".tavi_ea"), Listing{});
}

TEST(EAMKDir, FailsWithoutTheSourcesFolder) {
  TempDir folder;
  EXPECT_NE(MakeDir(folder / "missing/.tavi_ea/a.jpg"), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Names(folder.Path()), Listing{});
}

TEST(EAMKDir, FailsInAFolderThatMayNotBeWritten) {
  TempDir folder;
  ASSERT_EQ(chmod(folder.Path().c_str(), 0555), 0);
  CheckAsOrdinaryUser([&] {
    EXPECT_NE(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(errno, EACCES);
  });
  EXPECT_EQ(Names(folder.Path()), Listing{});
}

TEST(EAMKDir, SucceedsForAllWhoMakeTheSameDirectoryAtOnce) {
  TempDir folder;
  for (int round = 0; round < 50; ++round) {
    const std::string photos = folder / std::to_string(round);
    fs::create_directory(photos);
    ASSERT_EQ(chmod(photos.c_str(), 0775), 0);
    std::atomic<int> waiting{4}, failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        --waiting;
        while (waiting > 0) std::this_thread::yield();
        if (TAVIEAMKDir(1, (photos + "/.tavi_ea/a.jpg").c_str()) != 0) ++failures;
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(ModeOf(photos + "/.tavi_ea"), 0775u);
    EXPECT_EQ(ModeOf(photos + "/.tavi_ea/a.jpg"), 0775u);
  }
}

int EADirPathResult(const std::string& source) {
  char buffer[4096];
  errno = 0;
  return TAVIEADirPath(0, source.c_str(), buffer, sizeof buffer);
}

TEST(EADirectory, CountsInAStickyFolderForEverybodyOnlyWhenNoStrangerHasMadeIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make directories of somebody else's";
  constexpr uid_t self = 0, owner = 1234, stranger = 5678;
  const struct {
    mode_t folderMode;
    uid_t rootOwner;
    mode_t rootMode;
    uid_t directoryOwner;
    bool counts;
  } rows[] = {
      {01777, self, 01777, self, true},         {01777, owner, 01777, owner, true},
      {01777, owner, 01777, self, true},        {01777, stranger, 0755, stranger, false},
      {01777, stranger, 01777, self, false},    {01777, owner, 01777, stranger, false},
      {01777, owner, 0755, stranger, true},     {0777, stranger, 0777, stranger, true},
      {01775, stranger, 01775, stranger, true}, {01773, stranger, 0755, stranger, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << std::oct << row.folderMode << ", " << std::dec << row.rootOwner << std::oct
                                    << " " << row.rootMode << std::dec << ", " << row.directoryOwner);
    TempDir folder;
    fs::create_directories(folder / ".tavi_ea/a.jpg");
    ASSERT_EQ(chmod((folder / ".tavi_ea").c_str(), row.rootMode) | chmod(folder.Path().c_str(), row.folderMode), 0);
    ASSERT_EQ(chown(folder.Path().c_str(), owner, owner) | chown((folder / ".tavi_ea").c_str(), row.rootOwner, 0) |
                  chown((folder / ".tavi_ea/a.jpg").c_str(), row.directoryOwner, 0),
              0);
    EXPECT_EQ(EADirPathResult(folder / "a.jpg"), row.counts ? 0 : -1);
    EXPECT_EQ(errno, row.counts ? 0 : EPERM);
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), row.counts ? 0 : -1);
    if (row.counts) continue;
    EXPECT_EQ(errno, EPERM);
  }
}

TEST(EADirectory, CountsInAStickyFolderForEverybodyForTheOneWhoHasMadeIt) {
  TempDir folder;
  ASSERT_EQ(chmod(folder.Path().c_str(), 01777), 0);
  CheckAsOrdinaryUser([&] {
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(EADirPathResult(folder / "a.jpg"), 0);
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  });
}

TEST(EADirectory, DoesNotCountInAStickyFolderForEverybodyAsAStrangersLink) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make a link of somebody else's";
  TempDir folder, elsewhere;
  ASSERT_EQ(chmod(folder.Path().c_str(), 01777), 0);
  fs::create_directory(elsewhere / "a.jpg");
  fs::create_directory_symlink(elsewhere.Path(), folder / ".tavi_ea");
  EXPECT_EQ(EADirPathResult(folder / "a.jpg"), 0);
  ASSERT_EQ(lchown((folder / ".tavi_ea").c_str(), 5678, 5678), 0);
  EXPECT_EQ(EADirPathResult(folder / "a.jpg"), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST(EAMKDir, LeavesNoDescriptorOpen) {
  TempDir folder;
  const Listing before = Names("/proc/self/fd");
  EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  EXPECT_NE(MakeDir(folder / ".tavi_ea/a.jpg/x"), 0);
  WriteFile(folder / ".tavi_ea/b.jpg", "in the way");
  EXPECT_NE(MakeDir(folder / ".tavi_ea/b.jpg"), 0);
  EXPECT_EQ(Names("/proc/self/fd"), before);
}

}  // namespace
}  // namespace tavithumb::test
