// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <matching.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <tavi/fileop.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "acls.h"
#include "children.h"
#include "refused_calls.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Listing = std::vector<std::string>;

constexpr timespec kAccess{1000000001, 123456789};
constexpr timespec kModification{1600000002, 987654321};
constexpr std::uint32_t kMoveOptions[15] = {0, 1};

int Copy(const std::string& source, const std::string& destination) {
  errno = 0;
  return TAVIFileCopy(source.c_str(), destination.c_str(), nullptr);
}

int Move(const std::string& source, const std::string& destination) {
  errno = 0;
  return TAVIFileCopy(source.c_str(), destination.c_str(), kMoveOptions);
}

std::string Bytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 % 253);
  return bytes;
}

void MakeSource(const std::string& path, const std::string& content) {
  WriteFile(path, content);
  ASSERT_EQ(chmod(path.c_str(), 0604), 0);
  const timespec times[] = {kAccess, kModification};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

void ExpectLikeSource(const std::string& path, const std::string& content) {
  const struct stat facts = Facts(path);  // before the content is read
  EXPECT_TRUE(ReadFile(path) == content);
  EXPECT_EQ(facts.st_mode, static_cast<mode_t>(S_IFREG | 0604));
  EXPECT_EQ(facts.st_uid, geteuid());
  EXPECT_EQ(facts.st_atim.tv_sec, kAccess.tv_sec);
  EXPECT_EQ(facts.st_atim.tv_nsec, kAccess.tv_nsec);
  EXPECT_EQ(facts.st_mtim.tv_sec, kModification.tv_sec);
  EXPECT_EQ(facts.st_mtim.tv_nsec, kModification.tv_nsec);
}

// Two folders on different volumes.
class AcrossVolumes : public testing::Test {
 protected:
  void SetUp() override {
    struct stat shared;
    if (stat("/dev/shm", &shared) != 0 || shared.st_dev == Facts(here.Path()).st_dev || access("/dev/shm", W_OK) != 0) {
      GTEST_SKIP() << "needs /dev/shm as a second volume";
    }
    other_ = "/dev/shm/tavithumb-test-" + std::to_string(getpid());
    fs::create_directory(other_);
  }
  void TearDown() override {
    if (!other_.empty()) fs::remove_all(other_);
  }
  std::string There(const std::string& name) const { return other_ + "/" + name; }
  Listing NamesThere() const { return Names(other_); }

  const TempDir here;

 private:
  std::string other_;
};

TEST(FileCopy, CopiesDataModeAndTimesWhateverTheUmask) {
  for (const std::size_t size : {0u, 1u, 16383u, 16384u, 16385u, 1000000u}) {
    SCOPED_TRACE(size);
    TempDir folder;
    MakeSource(folder / "source", Bytes(size));
    const mode_t before = umask(0777);
    const int result = Copy(folder / "source", folder / "copy");
    umask(before);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(Names(folder.Path()), (Listing{"copy", "source"}));
    ExpectLikeSource(folder / "copy", Bytes(size));
    EXPECT_TRUE(ReadFile(folder / "source") == Bytes(size));
    EXPECT_NE(Facts(folder / "source").st_ino, Facts(folder / "copy").st_ino);
  }
}

TEST(FileCopy, MovesWhenTheSecondOptionWordIsOneAlone) {
  const struct {
    std::uint32_t words[15];
    bool moves;
  } rows[] = {{{0, 1}, true},  {{0}, false},      {{1, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, false},
              {{0, 2}, false}, {{1, 1, 0}, true}, {{0, 0x01000000}, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.words));
    TempDir folder;
    WriteFile(folder / "source", "content");
    EXPECT_EQ(TAVIFileCopy((folder / "source").c_str(), (folder / "target").c_str(), row.words), 0);
    EXPECT_EQ(Names(folder.Path()), row.moves ? Listing{"target"} : (Listing{"source", "target"}));
    EXPECT_EQ(ReadFile(folder / "target"), "content");
  }
}

TEST(FileCopy, ReplacesTheDestination) {
  for (const auto& operation : {Copy, Move}) {
    TempDir folder;
    MakeSource(folder / "source", "new");
    WriteFile(folder / "target", "old and longer");
    EXPECT_EQ(operation(folder / "source", folder / "target"), 0);
    ExpectLikeSource(folder / "target", "new");
    EXPECT_EQ(Names(folder.Path()), operation == Copy ? (Listing{"source", "target"}) : Listing{"target"});
  }
}

TEST(FileCopy, ReplacesALinkAtTheDestinationAndLeavesItsTargetAlone) {
  for (const auto& operation : {Copy, Move}) {
    TempDir folder;
    MakeSource(folder / "source", "new");
    WriteFile(folder / "elsewhere", "old");
    fs::create_symlink("elsewhere", folder / "target");
    EXPECT_EQ(operation(folder / "source", folder / "target"), 0);
    ExpectLikeSource(folder / "target", "new");
    EXPECT_EQ(ReadFile(folder / "elsewhere"), "old");
  }
}

TEST(FileCopy, MovesWithinAVolumeByRenaming) {
  TempDir folder;
  MakeSource(folder / "source", "content");
  const ino_t file = Facts(folder / "source").st_ino;
  EXPECT_EQ(Move(folder / "source", folder / "target"), 0);
  EXPECT_EQ(Facts(folder / "target").st_ino, file);
  ExpectLikeSource(folder / "target", "content");
  EXPECT_EQ(Names(folder.Path()), Listing{"target"});
}

TEST(FileCopy, AcceptsRelativeAndOddNames) {
  TempDir folder;
  CheckInProcess([&] {
    ASSERT_EQ(chdir(folder.Path().c_str()), 0);
    WriteFile(folder / "-n *\n\xFF", "content");
    EXPECT_EQ(Copy("-n *\n\xFF", "copy"), 0);
    EXPECT_EQ(Move("copy", "./moved"), 0);
  });
  EXPECT_EQ(Names(folder.Path()), (Listing{"-n *\n\xFF", "moved"}));
  EXPECT_EQ(ReadFile(folder / "moved"), "content");
}

TEST(FileCopy, WorksWhereTheCallerHasClosedItsStandardDescriptors) {
  TempDir folder;
  WriteFile(folder / "source", "content");
  CheckInProcess([&] {
    close(STDIN_FILENO);
    EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
  });
  EXPECT_EQ(ReadFile(folder / "copy"), "content");
}

TEST(FileCopy, KeepsNoAttributesButTheUsers) {
  TempDir folder;
  WriteFile(folder / "source", "content");
  if (!SetAttribute(folder / "source", "trusted.comment", "x")) GTEST_SKIP() << "needs root";
  EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
  EXPECT_EQ(Attribute(folder / "copy", "trusted.comment"), "none");
}

TEST(FileCopy, HasRoomForTheLongestNames) {
  TempDir folder;
  const std::string name(255, 'n');
  WriteFile(folder / "source", "content");
  EXPECT_EQ(Copy(folder / "source", folder / name), 0);
  EXPECT_EQ(Names(folder.Path()), (Listing{name, "source"}));
}

TEST(FileCopy, KeepsOwnerAndAllModeBitsForTheSuperuser) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  TempDir folder;
  WriteFile(folder / "source", "content");
  ASSERT_EQ(chown((folder / "source").c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod((folder / "source").c_str(), 06755), 0);
  EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
  const struct stat facts = Facts(folder / "copy");
  EXPECT_EQ(facts.st_uid, 1234u);
  EXPECT_EQ(facts.st_gid, 5678u);
  EXPECT_EQ(facts.st_mode & 07777u, 06755u);
}

TEST(FileCopy, MadeByAnOrdinaryUserIsTheirOwnWithoutTheRightsOfTheSourcesOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make somebody else's file";
  TempDir folder;
  WriteFile(folder / "source", "content");
  ASSERT_EQ(chmod((folder / "source").c_str(), 06755), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  CheckAsOrdinaryUser([&] {
    EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
    EXPECT_EQ(Facts(folder / "copy").st_uid, geteuid());
    EXPECT_EQ(ModeOf(folder / "copy"), 0755u);
    EXPECT_EQ(ReadFile(folder / "copy"), "content");
  });
  EXPECT_EQ(Names(folder.Path()), (Listing{"copy", "source"}));
}

TEST(FileCopy, KeepsTheGroupWhereItCannotKeepTheOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make somebody else's file";
  TempDir folder;
  WriteFile(folder / "source", "content");
  ASSERT_EQ(chown((folder / "source").c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod((folder / "source").c_str(), 06640), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  CheckInProcess([&] {
    const gid_t groups[] = {5678};
    ASSERT_EQ(setgroups(1, groups) | setresgid(65534, 65534, 65534) | setresuid(65534, 65534, 65534), 0);
    EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
  });
  EXPECT_EQ(Facts(folder / "copy").st_uid, 65534u);
  EXPECT_EQ(Facts(folder / "copy").st_gid, 5678u);
  EXPECT_EQ(ModeOf(folder / "copy"), 0640u);
}

TEST(FileCopy, GivesAGroupThatIsNotTheSourcesNoMoreRightsThanOthers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make somebody else's file";
  TempDir folder;
  WriteFile(folder / "source", "content");
  ASSERT_EQ(chown((folder / "source").c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod((folder / "source").c_str(), 0664), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  CheckAsOrdinaryUser([&] { EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0); });
  EXPECT_EQ(ModeOf(folder / "copy"), 0644u);
}

TEST(FileCopy, WorksForASuperuserWhoCannotGiveFilesAway) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  TempDir folder;
  WriteFile(folder / "source", "content");
  ASSERT_EQ(chown((folder / "source").c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod((folder / "source").c_str(), 06775), 0);
  CheckInProcess([&] {
    ASSERT_TRUE(DropChownCapability());
    EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
  });
  EXPECT_EQ(ReadFile(folder / "copy"), "content");
  EXPECT_EQ(Facts(folder / "copy").st_uid, 0u);
  EXPECT_EQ(ModeOf(folder / "copy"), 0755u);
}

TEST(FileCopy, WorksWhereTheVolumeRefusesOwners) {
  for (const int refusal : {EPERM, EINVAL, EACCES, ENOSYS, EOPNOTSUPP, EOVERFLOW}) {
    SCOPED_TRACE(std::strerror(refusal));
    TempDir folder;
    MakeSource(folder / "source", "content");
    if (geteuid() == 0) {
      ASSERT_EQ(chown((folder / "source").c_str(), 1234, 5678), 0);
    }
    CheckInProcess([&] {
      if (!RefuseCalls({SYS_fchownat, SYS_fchown}, refusal)) return;
      EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
      EXPECT_EQ(ReadFile(folder / "copy"), "content");
    });
  }
}

TEST(FileCopy, FailsWhereTheVolumeFails) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make somebody else's file";
  TempDir folder;
  MakeSource(folder / "source", "content");
  ASSERT_EQ(chown((folder / "source").c_str(), 1234, 5678), 0);
  CheckInProcess([&] {
    if (!RefuseCalls({SYS_fchownat, SYS_fchown}, EIO)) return;
    EXPECT_NE(Copy(folder / "source", folder / "copy"), 0);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(Names(folder.Path()), Listing{"source"});
  });
}

TEST(FileCopy, KeepsAclAndUserAttributes) {
  TempDir folder;
  const std::string acl = AclWithUser(6, 0, 4321, 6);
  WriteFile(folder / "source", "content");
  if (!SetAttribute(folder / "source", kAccessAcl, acl)) GTEST_SKIP() << "needs a volume with ACLs";
  const bool hasAttributes = SetAttribute(folder / "source", "user.comment", std::string("a\0b", 3)) &&
                             SetAttribute(folder / "source", "user.empty", "");
  ASSERT_EQ(chmod((folder / "source").c_str(), 0440), 0);
  ASSERT_EQ(Attribute(folder / "source", kAccessAcl).size(), acl.size());
  CheckInProcess([&] {
    umask(0777);
    EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
  });
  EXPECT_EQ(Attribute(folder / "copy", kAccessAcl), Attribute(folder / "source", kAccessAcl));
  EXPECT_EQ(ModeOf(folder / "copy"), 0440u);
  if (!hasAttributes) GTEST_SKIP() << "needs a volume with user attributes";
  EXPECT_EQ(Attribute(folder / "copy", "user.comment"), std::string("a\0b", 3));
  EXPECT_EQ(Attribute(folder / "copy", "user.empty"), "");
}

TEST(FileCopy, KeepsUserAttributesForAnOrdinaryUserWhoseCopyIsReadOnly) {
  TempDir folder;
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  WriteFile(folder / "source", "content");
  if (!SetAttribute(folder / "source", "user.comment", "x")) GTEST_SKIP() << "needs a volume with user attributes";
  ASSERT_EQ(chmod((folder / "source").c_str(), 0444), 0);
  CheckAsOrdinaryUser([&] {
    umask(0777);
    EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
  });
  EXPECT_EQ(Attribute(folder / "copy", "user.comment"), "x");
  EXPECT_EQ(ModeOf(folder / "copy"), 0444u);
}

TEST(FileCopy, GetsNoAclOfItsFolder) {
  TempDir folder;
  fs::create_directory(folder / "with-default");
  if (!SetAttribute(folder / "with-default", kDefaultAcl, AclWithUser(7, 7, 4321, 7))) {
    GTEST_SKIP() << "needs a volume with ACLs";
  }
  MakeSource(folder / "source", "content");
  ASSERT_EQ(chmod((folder / "source").c_str(), 0640), 0);
  EXPECT_EQ(Copy(folder / "source", folder / "with-default/copy"), 0);
  EXPECT_EQ(Attribute(folder / "with-default/copy", kAccessAcl), "none");
  EXPECT_EQ(ModeOf(folder / "with-default/copy"), 0640u);
}

TEST(FileCopy, GivesNobodyMoreRightsWhereThereAreNoAcls) {
  const struct {
    const char* what;
    std::vector<AclEntry> acl;
    mode_t mode, copied;
  } rows[] = {
      {"a user may read and write",
       {{ACL_USER_OBJ, 6}, {ACL_USER, 6, 4321}, {ACL_GROUP_OBJ, 0}, {ACL_MASK, 6}, {ACL_OTHER, 0}},
       0660,
       0600},
      {"a group may write, the owning one read",
       {{ACL_USER_OBJ, 6}, {ACL_GROUP_OBJ, 4}, {ACL_GROUP, 6, 4321}, {ACL_MASK, 6}, {ACL_OTHER, 4}},
       0664,
       0644},
      {"a user may not what all others may",
       {{ACL_USER_OBJ, 6}, {ACL_USER, 0, 4321}, {ACL_GROUP_OBJ, 4}, {ACL_MASK, 4}, {ACL_OTHER, 4}},
       0644,
       0600},
      {"a user may not because of the mask",
       {{ACL_USER_OBJ, 6}, {ACL_USER, 6, 4321}, {ACL_GROUP_OBJ, 6}, {ACL_MASK, 4}, {ACL_OTHER, 6}},
       0646,
       0644},
      {"a mask alone", {{ACL_USER_OBJ, 7}, {ACL_GROUP_OBJ, 7}, {ACL_MASK, 5}, {ACL_OTHER, 7}}, 0757, 0757},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TempDir folder;
    WriteFile(folder / "source", "content");
    if (!SetAttribute(folder / "source", kAccessAcl, AclOf(row.acl))) GTEST_SKIP() << "needs a volume with ACLs";
    ASSERT_EQ(ModeOf(folder / "source"), row.mode);
    CheckInProcess([&] {
      if (!RefuseCalls({SYS_setxattr, SYS_fsetxattr}, EOPNOTSUPP)) return;
      EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
      EXPECT_EQ(ModeOf(folder / "copy"), row.copied);
    });
  }
}

TEST(FileCopy, LimitsTheOwningGroupOfAnAclWhereItIsAnotherOne) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to make somebody else's file";
  TempDir folder;
  WriteFile(folder / "source", "content");
  if (!SetAttribute(folder / "source", kAccessAcl, AclWithUser(6, 6, 65534, 4))) {
    GTEST_SKIP() << "needs a volume with ACLs";
  }
  ASSERT_EQ(chown((folder / "source").c_str(), 1234, 5678), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  CheckAsOrdinaryUser([&] { EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0); });
  EXPECT_EQ(Attribute(folder / "copy", kAccessAcl),
            AclOf({{ACL_USER_OBJ, 6}, {ACL_USER, 4, 65534}, {ACL_GROUP_OBJ, 0}, {ACL_MASK, 6}, {ACL_OTHER, 0}}));
}

// A file of 8 MiB with data at some places only.
void MakeSparse(const std::string& path, const std::vector<off_t>& places) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_EQ(ftruncate(file, 8388608), 0);
  for (const off_t place : places) EXPECT_EQ(pwrite(file, "data", 4, place), 4);
  close(file);
}

TEST(FileCopy, KeepsHoles) {
  const std::vector<off_t> rows[] = {{}, {0}, {4194304}, {8388604}, {0, 5000000, 8388604}};
  for (const std::vector<off_t>& places : rows) {
    SCOPED_TRACE(testing::PrintToString(places));
    TempDir folder;
    MakeSparse(folder / "source", places);
    EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
    const struct stat source = Facts(folder / "source"), copy = Facts(folder / "copy");
    EXPECT_EQ(copy.st_size, 8388608);
    EXPECT_LE(copy.st_blocks, source.st_blocks + 64);
    EXPECT_TRUE(ReadFile(folder / "copy") == ReadFile(folder / "source"));
  }
}

TEST(FileCopy, ReadsAFileWithoutASizeToItsEnd) {
  TempDir folder;
  EXPECT_EQ(Copy("/proc/version", folder / "copy"), 0);
  EXPECT_EQ(ReadFile(folder / "copy"), ReadFile("/proc/version"));
}

TEST(FileCopy, WorksOnAVolumeThatDoesNotReportHoles) {
  for (const int whence : {SEEK_DATA, SEEK_HOLE}) {
    SCOPED_TRACE(whence);
    TempDir folder;
    MakeSource(folder / "source", Bytes(100000));
    CheckInProcess([&] {
      if (!RefuseSeeks(whence)) return;
      EXPECT_EQ(Copy(folder / "source", folder / "copy"), 0);
      ExpectLikeSource(folder / "copy", Bytes(100000));
    });
  }
}

TEST(FileCopy, HasRoomForTheLongestPaths) {
  TempDir folder;
  std::string path = folder.Path();
  while (path.size() < 3900) path += "/" + std::string(std::min<std::size_t>(200, 3998 - path.size()), 'd');
  fs::create_directories(path);
  WriteFile(folder / "source", "content");
  for (const std::size_t size : {4088u, 4089u, 4095u}) {
    SCOPED_TRACE(size);
    const std::string copy = path + "/" + std::string(size - path.size() - 1, 'n');
    EXPECT_EQ(Copy(folder / "source", copy), 0) << std::strerror(errno);
    EXPECT_EQ(ReadFile(copy), "content");
  }
}

TEST(FileCopy, KilledAtAnyTimeLeavesADestinationThatIsOldOrNew) {
  const std::string temporary = "\\.tavi_copy\\.[0-9A-Za-z]{6}";
  for (const long step : {SYS_write, SYS_ftruncate, SYS_fsync, SYS_rename, SYS_renameat}) {
    TempDir folder;
    WriteFile(folder / "source", "new");
    fs::create_directory(folder / "copies");
    WriteFile(folder / "copies/target", "old");
    const int end =
        InProcess([&] { return DieAtCalls({step}) ? Copy(folder / "source", folder / "copies/target") : 77; });
    if (end == 77) GTEST_SKIP() << "needs filters of system calls";
    EXPECT_EQ(ReadFile(folder / "copies/target"), end == 0 ? "new" : "old") << step;
    for (const std::string& name : Names(folder / "copies")) {
      EXPECT_TRUE(name == "target" || Matches(name, temporary)) << name;
    }
  }
}

TEST(FileCopy, FailsForASourceThatIsNotARegularFile) {
  TempDir folder;
  fs::create_directory(folder / "directory");
  WriteFile(folder / "file", "content");
  fs::create_symlink("file", folder / "link");
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  WriteFile(folder / "target", "old");
  const Listing all = Names(folder.Path());
  const struct {
    std::string source;
    int reason;
  } rows[] = {{folder / "directory", EINVAL},  {folder / "link", EINVAL},    {folder / "fifo", EINVAL},
              {"/dev/null", EINVAL},           {folder / "missing", ENOENT}, {"", ENOENT},
              {folder / "file/below", ENOTDIR}};
  for (const auto& row : rows) {
    for (const auto& operation : {Copy, Move}) {
      SCOPED_TRACE(row.source);
      EXPECT_NE(operation(row.source, folder / "target"), 0);
      EXPECT_EQ(errno, row.reason);
      EXPECT_EQ(ReadFile(folder / "target"), "old");
      EXPECT_EQ(Names(folder.Path()), all);
    }
  }
}

TEST(FileCopy, FailsForAnImpossibleDestination) {
  TempDir folder;
  WriteFile(folder / "source", "content");
  fs::create_directories(folder / "directory");
  const Listing all = Names(folder.Path());
  const struct {
    std::string destination;
    int reason;
  } rows[] = {{folder / "directory", EISDIR}, {folder / "missing/target", ENOENT}, {folder / "source/below", ENOTDIR}};
  for (const auto& row : rows) {
    for (const auto& operation : {Copy, Move}) {
      SCOPED_TRACE(row.destination);
      EXPECT_NE(operation(folder / "source", row.destination), 0);
      EXPECT_EQ(errno, row.reason);
      EXPECT_EQ(ReadFile(folder / "source"), "content");
      EXPECT_EQ(Names(folder.Path()), all);
      EXPECT_EQ(Names(folder / "directory"), Listing{});
    }
  }
}

TEST(FileCopy, FailsForASourceThatMayNotBeRead) {
  TempDir folder;
  ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
  WriteFile(folder / "source", "content");
  WriteFile(folder / "target", "old");
  ASSERT_EQ(chmod((folder / "source").c_str(), 0), 0);
  CheckAsOrdinaryUser([&] {
    EXPECT_NE(Copy(folder / "source", folder / "target"), 0);
    EXPECT_EQ(errno, EACCES);
  });
  EXPECT_EQ(ReadFile(folder / "target"), "old");
  EXPECT_EQ(Names(folder.Path()), (Listing{"source", "target"}));
}

TEST(FileCopy, LeavesNoDescriptorOpen) {
  TempDir folder;
  WriteFile(folder / "source", "content");
  const Listing before = Names("/proc/self/fd");
  Copy(folder / "source", folder / "copy");
  Copy(folder / "source", folder / "missing/copy");
  Copy(folder / "source", folder.Path());
  Move(folder / "copy", folder / "moved");
  EXPECT_EQ(Names("/proc/self/fd"), before);
}

TEST_F(AcrossVolumes, AMoveKeepsDataModeAndTimesAndRemovesTheSource) {
  for (const std::size_t size : {0u, 1u, 16385u, 1000000u}) {
    for (const bool replaces : {false, true}) {
      SCOPED_TRACE(std::to_string(size) + (replaces ? " over an old file" : ""));
      MakeSource(here / "source", Bytes(size));
      if (replaces) WriteFile(There("target"), "old");
      EXPECT_EQ(Move(here / "source", There("target")), 0);
      ExpectLikeSource(There("target"), Bytes(size));
      EXPECT_EQ(Names(here.Path()), Listing{});
      EXPECT_EQ(NamesThere(), Listing{"target"});
      fs::remove(There("target"));
    }
  }
}

TEST_F(AcrossVolumes, AMoveKeepsTheOwnerForTheSuperuser) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  WriteFile(here / "source", "content");
  ASSERT_EQ(chown((here / "source").c_str(), 1234, 5678), 0);
  EXPECT_EQ(Move(here / "source", There("target")), 0);
  EXPECT_EQ(Facts(There("target")).st_uid, 1234u);
  EXPECT_EQ(Facts(There("target")).st_gid, 5678u);
}

TEST_F(AcrossVolumes, ACopyKeepsTheSource) {
  MakeSource(here / "source", "content");
  EXPECT_EQ(Copy(here / "source", There("copy")), 0);
  ExpectLikeSource(There("copy"), "content");
  EXPECT_EQ(Names(here.Path()), Listing{"source"});
  EXPECT_EQ(NamesThere(), Listing{"copy"});
}

TEST_F(AcrossVolumes, AMoveReplacesALinkAndLeavesItsTargetAlone) {
  WriteFile(here / "source", "new");
  WriteFile(There("elsewhere"), "old");
  fs::create_symlink("elsewhere", There("target"));
  EXPECT_EQ(Move(here / "source", There("target")), 0);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(There("target"))));
  EXPECT_EQ(ReadFile(There("target")), "new");
  EXPECT_EQ(ReadFile(There("elsewhere")), "old");
  EXPECT_EQ(NamesThere(), (Listing{"elsewhere", "target"}));
}

TEST_F(AcrossVolumes, AMoveOntoADirectoryFails) {
  WriteFile(here / "source", "content");
  fs::create_directory(There("directory"));
  EXPECT_NE(Move(here / "source", There("directory")), 0);
  EXPECT_EQ(ReadFile(here / "source"), "content");
  EXPECT_TRUE(fs::is_directory(There("directory")));
  EXPECT_EQ(NamesThere(), Listing{"directory"});
}

// Mounts a small volume, for processes with their own mounts.
std::string MountSmallVolume(const std::string& folder) {
  fs::create_directory(folder);
  return mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=65536") == 0 ? "" : "needs mounts of tmpfs";
}

TEST(FileCopy, OntoAFullVolumeLeavesTheDestinationAsItWas) {
  for (const auto& operation : {Copy, Move}) {
    for (const bool existed : {false, true}) {
      SCOPED_TRACE(existed ? "over an old file" : "new");
      CheckWithMounts([&] {
        TempDir folder;
        const std::string why = MountSmallVolume(folder / "small");
        if (!why.empty()) return why;
        MakeSource(folder / "source", Bytes(200000));
        if (existed) WriteFile(folder / "small/target", "old");
        EXPECT_NE(operation(folder / "source", folder / "small/target"), 0);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(Names(folder / "small"), existed ? Listing{"target"} : Listing{});
        EXPECT_EQ(ReadFile(folder / "small/target"), existed ? "old" : "");
        EXPECT_TRUE(ReadFile(folder / "source") == Bytes(200000));
        umount((folder / "small").c_str());
        return why;
      });
    }
  }
}

// Calls that a volume doesn't support: to exchange names and to make hard links.
const std::vector<std::vector<long>> kMissingCalls{{}, {SYS_renameat2}, {SYS_renameat2, SYS_linkat, SYS_link}};

TEST(FileCopy, MoveFailsForASourceThatCannotBeRemovedAndLeavesTheDestinationAsItWas) {
  for (const std::vector<long>& missing : kMissingCalls) {
    for (const bool existed : {false, true}) {
      SCOPED_TRACE(std::to_string(missing.size()) + (existed ? " over an old file" : " new"));
      CheckWithMounts([&] {
        TempDir folder;
        const std::string why = MountSmallVolume(folder / "small");
        if (!why.empty()) return why;
        WriteFile(folder / "small/source", "new");
        EXPECT_EQ(mount(nullptr, (folder / "small").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        if (existed) WriteFile(folder / "target", "old");
        const ino_t old = existed ? Facts(folder / "target").st_ino : 0;
        RefuseCalls(missing, EINVAL);
        EXPECT_NE(Move(folder / "small/source", folder / "target"), 0);
        EXPECT_EQ(errno, EROFS);
        EXPECT_EQ(ReadFile(folder / "small/source"), "new");
        EXPECT_EQ(Names(folder.Path()), existed ? (Listing{"small", "target"}) : Listing{"small"});
        EXPECT_EQ(ReadFile(folder / "target"), existed ? "old" : "");
        if (existed) {
          EXPECT_EQ(Facts(folder / "target").st_ino, old);
        }
        umount((folder / "small").c_str());
        return why;
      });
    }
  }
}

TEST_F(AcrossVolumes, AMoveReplacesAFileWhateverTheVolumeCanDo) {
  for (const std::vector<long>& missing : kMissingCalls) {
    SCOPED_TRACE(missing.size());
    MakeSource(here / "source", "new");
    WriteFile(There("target"), "old");
    CheckInProcess([&] {
      RefuseCalls(missing, EINVAL);
      EXPECT_EQ(Move(here / "source", There("target")), 0);
    });
    ExpectLikeSource(There("target"), "new");
    EXPECT_EQ(Names(here.Path()), Listing{});
    EXPECT_EQ(NamesThere(), Listing{"target"});
  }
}

TEST_F(AcrossVolumes, AMoveKeepsAcl) {
  WriteFile(here / "source", "content");
  WriteFile(There("probe"), "");
  const std::string acl = AclWithUser(6, 0, 4321, 4);
  if (!SetAttribute(here / "source", kAccessAcl, acl) || !SetAttribute(There("probe"), kAccessAcl, acl)) {
    GTEST_SKIP() << "needs two volumes with ACLs";
  }
  EXPECT_EQ(Move(here / "source", There("target")), 0);
  EXPECT_EQ(Attribute(There("target"), kAccessAcl), acl);
}

TEST(FileCopy, MoveOntoAnotherNameOfTheSourceRemovesTheSourcesName) {
  for (const char* other : {"target", "folder/source", "folder/target", "link/target"}) {
    SCOPED_TRACE(other);
    TempDir folder;
    fs::create_directory(folder / "folder");
    fs::create_directory_symlink("folder", folder / "link");
    MakeSource(folder / "source", "content");
    fs::create_hard_link(folder / "source", folder / other);
    EXPECT_EQ(Move(folder / "source", folder / other), 0);
    EXPECT_FALSE(Exists(folder / "source"));
    ExpectLikeSource(folder / other, "content");
    EXPECT_EQ(Facts(folder / other).st_nlink, 1u);
  }
}

TEST(FileCopy, MoveOntoItselfChangesNothing) {
  for (const nlink_t names : {1u, 2u}) {
    TempDir folder;
    fs::create_directory(folder / "folder");
    fs::create_directory_symlink("folder", folder / "link");
    MakeSource(folder / "folder/source", "content");
    if (names == 2) fs::create_hard_link(folder / "folder/source", folder / "other");
    for (const char* path : {"folder/source", "folder//source", "folder/../folder/source", "link/source"}) {
      SCOPED_TRACE(path);
      EXPECT_EQ(Move(folder / "folder/source", folder / path), 0);
      EXPECT_EQ(Facts(folder / "folder/source").st_nlink, names);
    }
    ExpectLikeSource(folder / "folder/source", "content");
  }
}

TEST(FileCopy, MoveOntoItselfByAnotherMountLosesNothing) {
  CheckWithMounts([]() -> std::string {
    TempDir folder;
    fs::create_directories(folder / "photos");
    fs::create_directories(folder / "mounted");
    if (mount((folder / "photos").c_str(), (folder / "mounted").c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return "needs bind mounts";
    }
    MakeSource(folder / "photos/source", "content");
    EXPECT_EQ(Move(folder / "photos/source", folder / "mounted/source"), 0);
    ExpectLikeSource(folder / "photos/source", "content");
    fs::create_hard_link(folder / "photos/source", folder / "photos/target");
    EXPECT_EQ(Move(folder / "photos/source", folder / "mounted/source"), 0);
    EXPECT_EQ(Names(folder / "photos"), (Listing{"source", "target"}));
    EXPECT_EQ(Move(folder / "photos/source", folder / "mounted/target"), 0);
    EXPECT_EQ(Names(folder / "photos"), Listing{"target"});
    umount((folder / "mounted").c_str());
    return "";
  });
}

}  // namespace
}  // namespace tavithumb::test
