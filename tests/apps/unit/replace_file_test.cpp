// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/replace_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <temp_dir.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>

#include "system/file_descriptor.h"
#include "system/soft_limit.h"

namespace fs = std::filesystem;

namespace tavithumb::apps {
namespace {

using test::Names;
using test::ReadFile;
using test::WriteFile;

mode_t ModeOf(const std::string& path) {
  struct stat record = {};
  return stat(path.c_str(), &record) == 0 ? record.st_mode & 07777 : 0;
}

int ErrorOf(const std::function<void()>& work) {
  try {
    work();
    return 0;
  } catch (const std::system_error& error) {
    return error.code().value();
  }
}

class ReplacingFiles : public testing::Test {
 protected:
  const test::TempDir folder_;
  const std::string path_ = folder_ / "a.jpg";
};

TEST_F(ReplacingFiles, CreatesOneWithTheModeOfNewFiles) {
  const mode_t before = umask(027);
  ReplaceFile(path_, std::string("a\0b", 3));
  umask(before);
  EXPECT_EQ(ReadFile(path_), std::string("a\0b", 3));
  EXPECT_EQ(ModeOf(path_), 0640U);
  EXPECT_EQ(Names(folder_.Path()), std::vector<std::string>{"a.jpg"});
}

TEST_F(ReplacingFiles, PutsANewFileInThePlaceOfTheOldWithItsMode) {
  WriteFile(path_, "old");
  chmod(path_.c_str(), 0604);
  fs::create_hard_link(path_, folder_ / "other.jpg");
  ReplaceFile(path_, "new");
  EXPECT_EQ(ReadFile(path_), "new");
  EXPECT_EQ(ModeOf(path_), 0604U);
  EXPECT_EQ(ReadFile(folder_ / "other.jpg"), "old") << "whoever had it open keeps it whole";
  EXPECT_EQ(Names(folder_.Path()), (std::vector<std::string>{"a.jpg", "other.jpg"}));
}

TEST_F(ReplacingFiles, WritesThroughALinkAndIntoADevice) {
  WriteFile(folder_ / "real.jpg", "old and long");
  fs::create_symlink("real.jpg", path_);
  ReplaceFile(path_, "new");
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_EQ(ReadFile(folder_ / "real.jpg"), "new");
  ReplaceFile("/dev/null", "new");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(ReplacingFiles, FillsAnEmptyFileThatSomebodyHasOpen) {
  WriteFile(path_, "");
  const FileDescriptor opened(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  ReplaceFile(path_, "new");
  char content[4] = {};
  EXPECT_EQ(read(opened.Number(), content, sizeof content), 3);
  EXPECT_STREQ(content, "new");
}

TEST_F(ReplacingFiles, LeavesTheOldOneWhereTheNewOneDoesNotFit) {
  WriteFile(path_, "old");
  const SoftLimit limit(RLIMIT_FSIZE, 1000);
  const auto before = std::signal(SIGXFSZ, SIG_IGN);
  EXPECT_EQ(ErrorOf([&] { ReplaceFile(path_, std::string(2000, 'x')); }), EFBIG);
  static_cast<void>(std::signal(SIGXFSZ, before));
  EXPECT_EQ(ReadFile(path_), "old");
  EXPECT_EQ(Names(folder_.Path()), std::vector<std::string>{"a.jpg"});
}

TEST_F(ReplacingFiles, ReportsWhyItCannot) {
  EXPECT_EQ(ErrorOf([&] { ReplaceFile(folder_ / "none/a.jpg", "new"); }), ENOENT);
  EXPECT_EQ(ErrorOf([&] { ReplaceFile(folder_.Path(), "new"); }), EISDIR);
  EXPECT_EQ(ErrorOf([&] { ReplaceFile("/dev/full", "new"); }), ENOSPC);
}

// What `work` does as a user who may not write to the folder.
int AsNobody(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(setgid(65534) == 0 && setuid(65534) == 0 ? work() : 255);
  int status = -1;
  waitpid(child, &status, 0);
  return WEXITSTATUS(status);
}

TEST_F(ReplacingFiles, WritesInPlaceWhereTheFileAloneCanBeWritten) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  WriteFile(path_, "old and long");
  chmod(path_.c_str(), 0666);
  chmod(folder_.Path().c_str(), 0755);
  EXPECT_EQ(AsNobody([&] { return ErrorOf([&] { ReplaceFile(path_, "new"); }); }), 0);
  EXPECT_EQ(ReadFile(path_), "new");
  EXPECT_EQ(AsNobody([&] { return ErrorOf([&] { ReplaceFile(folder_ / "b.jpg", "new"); }); }), EACCES);
  EXPECT_EQ(Names(folder_.Path()), std::vector<std::string>{"a.jpg"});
}

}  // namespace
}  // namespace tavithumb::apps
