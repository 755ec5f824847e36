// SPDX-License-Identifier: GPL-3.0-or-later
#include <grp.h>
#include <gtest/gtest.h>
#include <matching.h>
#include <signal.h>
#include <sys/stat.h>
#include <tavi/sdk.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "acls.h"
#include "children.h"
#include "refused_calls.h"

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

TEST(EAMKDir, WorksForASuperuserWhoCannotGiveDirectoriesAway) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  TempDir folder;
  ASSERT_EQ(chown(folder.Path().c_str(), 1234, 0), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 02771), 0);
  CheckInProcess([&] {
    ASSERT_TRUE(DropChownCapability());
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  });
  for (const char* name : {".tavi_ea", ".tavi_ea/a.jpg"}) {
    EXPECT_EQ(Facts(folder / name).st_uid, 0u) << name;
    EXPECT_EQ(ModeOf(folder / name), 02771u) << name;
  }
}

TEST(EAMKDir, WorksInAFolderWhoseOwnerIsUnknownToTheSuperuser) {
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
    std::ofstream("/proc/self/uid_map") << "0 0 1";  // the folder's owner does not exist in this namespace
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  });
  if (Exists(notes / "skip")) GTEST_SKIP() << "needs user namespaces";
  EXPECT_EQ(Names(folder / ".tavi_ea"), Listing{"a.jpg"});
  EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), 0777u);
}

TEST(EAMKDir, GivesTheGroupOfTheSourcesFolderWhereItCannotGiveTheOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make a folder of somebody else's";
  TempDir folder;
  ASSERT_EQ(chown(folder.Path().c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0770), 0);
  CheckInProcess([&] {
    const gid_t groups[] = {5678};
    ASSERT_EQ(setgroups(1, groups) | setresgid(65534, 65534, 65534) | setresuid(65534, 65534, 65534), 0);
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  });
  for (const char* name : {".tavi_ea", ".tavi_ea/a.jpg"}) {
    EXPECT_EQ(Facts(folder / name).st_uid, 65534u) << name;
    EXPECT_EQ(Facts(folder / name).st_gid, 5678u) << name;
    EXPECT_EQ(ModeOf(folder / name), 0770u) << name;
  }
}

TEST(EAMKDir, GivesAGroupThatIsNotTheFoldersNoMoreRightsThanOthers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make a folder of somebody else's";
  TempDir folder;
  ASSERT_EQ(chown(folder.Path().c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0773), 0);
  CheckAsOrdinaryUser([&] { EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0); });
  EXPECT_EQ(ModeOf(folder / ".tavi_ea"), 0733u);
  EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), 0733u);
}

TEST(EAMKDir, GivesBothDirectoriesTheAclOfTheSourcesFolder) {
  TempDir folder;
  const std::string acl = AclWithUser(7, 0, 4321, 5);
  if (!SetAttribute(folder.Path(), kAccessAcl, acl)) GTEST_SKIP() << "needs a volume with ACLs";
  ASSERT_TRUE(SetAttribute(folder.Path(), kDefaultAcl, AclWithUser(7, 7, 99, 7)));
  EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
  for (const char* name : {".tavi_ea", ".tavi_ea/a.jpg"}) {
    EXPECT_EQ(Attribute(folder / name, kAccessAcl), acl) << name;
    EXPECT_EQ(ModeOf(folder / name), 0750u) << name;
  }
}

TEST(EAMKDir, GivesTheOwningGroupOnlyItsOwnRightsWhereThereAreNoAcls) {
  TempDir folder;
  if (!SetAttribute(folder.Path(), kAccessAcl, AclWithUser(7, 0, 4321, 7))) GTEST_SKIP() << "needs a volume with ACLs";
  ASSERT_EQ(ModeOf(folder.Path()), 0770u);
  CheckInProcess([&] {
    if (!RefuseCalls({SYS_setxattr, SYS_fsetxattr}, EOPNOTSUPP)) return;
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(ModeOf(folder / ".tavi_ea"), 0700u);
    EXPECT_EQ(ModeOf(folder / ".tavi_ea/a.jpg"), 0700u);
  });
}

// Empty directories under temporary names.
Listing Leftovers(const std::string& folder) {
  Listing found;
  for (const std::string& name : Names(folder)) {
    if (Matches(name, "\\.tavi_mkdir\\.[0-9A-Za-z]{6}") && fs::is_empty(folder + "/" + name)) {
      found.push_back(name);
    }
  }
  return found;
}

TEST(EAMKDir, KilledAtAnyTimeLeavesNoIncompleteEADirectory) {
  const std::vector<std::vector<long>> steps{{SYS_mkdirat}, {SYS_fchownat}, ModeCalls(), {SYS_renameat2}};
  for (const std::vector<long>& step : steps) {
    SCOPED_TRACE(testing::PrintToString(step));
    TempDir folder;
    ASSERT_EQ(chmod(folder.Path().c_str(), 02775), 0);
    if (geteuid() == 0) {
      ASSERT_EQ(chown(folder.Path().c_str(), 1234, 5678), 0);
    }
    const int end = InProcess([&] { return DieAtCalls(step) ? MakeDir(folder / ".tavi_ea/a.jpg") : 77; });
    if (end == 77) GTEST_SKIP() << "needs filters of system calls";
    EXPECT_EQ(end, step[0] == SYS_fchownat && geteuid() != 0 ? 0 : -SIGSYS);
    if (end == 0) continue;
    EXPECT_EQ(Names(folder.Path()), Leftovers(folder.Path()));
    EXPECT_EQ(Names(folder.Path()).size(), step[0] == SYS_mkdirat ? 0u : 1u);
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0) << "next time";
    EXPECT_EQ(ModeOf(folder / ".tavi_ea"), 02775u);
  }
}

TEST(EAMKDir, LeavesNothingWhenTheVolumeFails) {
  for (const std::vector<long>& step : {ModeCalls(), std::vector<long>{SYS_renameat2}}) {
    TempDir folder;
    CheckInProcess([&] {
      if (!RefuseCalls(step, EIO)) return;
      EXPECT_NE(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
      EXPECT_EQ(errno, EIO);
      EXPECT_EQ(Names(folder.Path()), Listing{});
    });
  }
}

TEST(EAMKDir, WorksOnAVolumeWithoutConditionalRenames) {
  TempDir folder;
  CheckInProcess([&] {
    RefuseCalls({SYS_renameat2}, EINVAL);
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/b.jpg"), 0);
  });
  EXPECT_EQ(Names(folder.Path()), Listing{".tavi_ea"});
  EXPECT_EQ(Names(folder / ".tavi_ea"), (Listing{"a.jpg", "b.jpg"}));
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

TEST(EAMKDir, MakesOneDirectoryForEachFileOfAFolder) {
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

TEST(EAMKDir, NeedsNoRightToListFolderOrDirectories) {
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

TEST(EAMKDir, FailsWhenAnythingButADirectoryIsInTheWay) {
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

TEST(EAMKDir, RefusesPathsThatAreNotEADirectories) {
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

// Four threads make the EA directory of a file in 50 new folders; how many failed.
int FailuresOfMakingAtOnce(const TempDir& folder) {
  std::atomic<int> failures{0};
  for (int round = 0; round < 50; ++round) {
    const std::string photos = folder / std::to_string(round);
    fs::create_directory(photos);
    if (chmod(photos.c_str(), 0775) != 0) ++failures;
    std::atomic<int> waiting{4};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        --waiting;
        while (waiting > 0) std::this_thread::yield();
        if (TAVIEAMKDir(1, (photos + "/.tavi_ea/a.jpg").c_str()) != 0) ++failures;
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(Names(photos), Listing{".tavi_ea"});
    EXPECT_EQ(Names(photos + "/.tavi_ea"), Listing{"a.jpg"});
    EXPECT_EQ(ModeOf(photos + "/.tavi_ea"), 0775u);
    EXPECT_EQ(ModeOf(photos + "/.tavi_ea/a.jpg"), 0775u);
  }
  return failures;
}

TEST(EAMKDir, SucceedsForAllWhoMakeTheSameDirectoryAtOnce) {
  TempDir folder;
  EXPECT_EQ(FailuresOfMakingAtOnce(folder), 0);
}

TEST(EAMKDir, SucceedsForAllAtOnceOnAVolumeWithoutConditionalRenames) {
  TempDir folder;
  CheckInProcess([&] {
    RefuseCalls({SYS_renameat2}, EINVAL);
    EXPECT_EQ(FailuresOfMakingAtOnce(folder), 0);
  });
}

TEST(EAMKDir, SucceedsForTwoUsersAtOnceWhateverTheirUmask) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to be two users";
  TempDir folder;
  ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
  for (int round = 0; round < 50; ++round) {
    const std::string photos = folder / std::to_string(round);
    fs::create_directory(photos);
    ASSERT_EQ(chmod(photos.c_str(), 0777), 0);
    const pid_t other = fork();
    if (other == 0) {
      umask(0777);
      if (setresuid(65534, 65534, 65534) != 0) _exit(2);
      _exit(MakeDir(photos + "/.tavi_ea/a.jpg") == 0 ? 0 : 1);
    }
    const mode_t before = umask(0777);
    const int result = MakeDir(photos + "/.tavi_ea/b.jpg");
    umask(before);
    EXPECT_EQ(EndOf(other), 0);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ModeOf(photos + "/.tavi_ea"), 0777u);
    EXPECT_EQ(Names(photos + "/.tavi_ea"), (Listing{"a.jpg", "b.jpg"}));
  }
}

TEST(EAMKDir, SucceedsWhileAnotherRemovesTheEmptyRoot) {
  TempDir folder;
  std::atomic<bool> done{false};
  std::thread remover([&] {
    while (!done) {
      rmdir((folder / ".tavi_ea").c_str());
      std::this_thread::sleep_for(std::chrono::microseconds(50));  // without a pause, it wins a hundred times in a row
    }
  });
  for (int round = 0; round < 200; ++round) {
    EXPECT_EQ(MakeDir(folder / ".tavi_ea/a.jpg"), 0);
    EXPECT_EQ(rmdir((folder / ".tavi_ea/a.jpg").c_str()), 0);
  }
  done = true;
  remover.join();
}

int EADirPathResult(const std::string& source) {
  char buffer[4096];
  errno = 0;
  return TAVIEADirPath(0, source.c_str(), buffer, sizeof buffer);
}

TEST(EADirectory, CountsInAStickyFolderForEverybodyOnlyWhenNoOtherUserHasMadeIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make directories of somebody else's";
  constexpr uid_t self = 0, owner = 1234, other = 5678;
  const struct {
    mode_t folderMode;
    uid_t rootOwner;
    mode_t rootMode;
    uid_t directoryOwner;
    bool counts;
  } rows[] = {
      {01777, self, 01777, self, true},   {01777, owner, 01777, owner, true}, {01777, owner, 01777, self, true},
      {01777, other, 0755, other, false}, {01777, other, 01777, self, false}, {01777, owner, 01777, other, false},
      {01777, owner, 0755, other, true},  {0777, other, 0777, other, true},   {01775, other, 01775, other, true},
      {01773, other, 0755, other, false},
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

TEST(EADirectory, DoesNotCountInAStickyFolderForEverybodyAsAnotherUsersLink) {
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
