// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <tavi/fileop.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "children.h"

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

TEST(FileCopy, ReplacesALinkAtTheDestinationAndLeavesWhatItLeadsToAlone) {
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

TEST(FileCopy, TakesRelativeAndOddNames) {
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

TEST(FileCopy, MadeByAnOrdinaryUserIsHisOwnWithoutTheRightsOfTheSourcesOwner) {
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

TEST(FileCopy, FailsForASourceThatIsNoRegularFile) {
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

TEST(FileCopy, FailsForADestinationThatCannotBe) {
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

TEST_F(AcrossVolumes, AMoveReplacesALinkAndLeavesWhatItLeadsToAlone) {
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

// A small volume of its own, for processes with mounts of their own.
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

TEST(FileCopy, OfASourceThatCannotBeRemovedIsNoMoveAndLeavesTheDestinationAsItWas) {
  for (const bool existed : {false, true}) {
    SCOPED_TRACE(existed ? "over an old file" : "new");
    CheckWithMounts([&] {
      TempDir folder;
      const std::string why = MountSmallVolume(folder / "small");
      if (!why.empty()) return why;
      WriteFile(folder / "small/source", "new");
      EXPECT_EQ(mount(nullptr, (folder / "small").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
      if (existed) WriteFile(folder / "target", "old");
      EXPECT_NE(Move(folder / "small/source", folder / "target"), 0);
      EXPECT_EQ(errno, EROFS);
      EXPECT_EQ(ReadFile(folder / "small/source"), "new");
      EXPECT_EQ(Names(folder.Path()), existed ? (Listing{"small", "target"}) : Listing{"small"});
      EXPECT_EQ(ReadFile(folder / "target"), existed ? "old" : "");
      umount((folder / "small").c_str());
      return why;
    });
  }
}

}  // namespace
}  // namespace tavithumb::test
