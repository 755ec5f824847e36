// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <tavi/sdk.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "children.h"

namespace tavithumb::test {
namespace {

// The path, or "none".
std::string EAPath(const std::string& source, const std::string& eaName) {
  char buffer[4096];
  return TAVIEAPath(0, source.c_str(), eaName.c_str(), buffer, sizeof buffer, 0) < 0 ? "none" : buffer;
}

std::string EADirPath(const std::string& source) {
  char buffer[4096];
  return TAVIEADirPath(0, source.c_str(), buffer, sizeof buffer) != 0 ? "none" : buffer;
}

TEST(EAPath, IsInTheSourcesFolderInADirectoryNamedLikeTheSource) {
  const struct {
    std::string source, directory;
  } rows[] = {
      {"/volume1/photo/a.jpg", "/volume1/photo/.tavi_ea/a.jpg"},
      {"/a.jpg", "/.tavi_ea/a.jpg"},
      {"photo/a.jpg", "photo/.tavi_ea/a.jpg"},
      {"./a.jpg", "./.tavi_ea/a.jpg"},
      {"../a.jpg", "../.tavi_ea/a.jpg"},
      {"a.jpg", ".tavi_ea/a.jpg"},
      {"/v/two  blanks/-n *?.jpg", "/v/two  blanks/.tavi_ea/-n *?.jpg"},
      {"/v/line\nbreak \xFF.jpg", "/v/.tavi_ea/line\nbreak \xFF.jpg"},
      {"/v/...", "/v/.tavi_ea/..."},
      {"/v/.tavi_ea2/a.jpg", "/v/.tavi_ea2/.tavi_ea/a.jpg"},
      {"/v/x.tavi_ea/a.jpg", "/v/x.tavi_ea/.tavi_ea/a.jpg"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.source);
    EXPECT_EQ(EADirPath(row.source), row.directory);
    EXPECT_EQ(EAPath(row.source, "TAVIPHOTO:THUMB_M.jpg"), row.directory + "/TAVIPHOTO:THUMB_M.jpg");
  }
}

TEST(EAPath, IsNoneForAPathThatNamesNoFile) {
  for (const char* source : {"", "/", "/v/photo/", ".", "..", "/v/.", "/v/..", "//"}) {
    SCOPED_TRACE(source);
    errno = 0;
    EXPECT_EQ(EADirPath(source), "none");
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(EAPath(source, "THUMB"), "none");
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(EAPath, IsNoneForAnEANameThatNoEntryCanHave) {
  for (const char* name : {"", "/", "a/b", "/a", "a/", ".", ".."}) {
    SCOPED_TRACE(name);
    errno = 0;
    EXPECT_EQ(EAPath("/v/a.jpg", name), "none");
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(EAPath, IsNoneForASourceInAnEADirectory) {
  for (const char* source : {"/v/.tavi_ea/a.jpg/THUMB.jpg", "/v/.tavi_ea/a.jpg", "/.tavi_ea/x", ".tavi_ea/a.jpg/THUMB",
                             "./.tavi_ea/a.jpg", "/v/.tavi_ea/deep/er/still/x", "/v/.tavi_ea"}) {
    SCOPED_TRACE(source);
    EXPECT_EQ(EADirPath(source), "none");
    EXPECT_EQ(EAPath(source, "THUMB"), "none");
  }
}

TEST(EAPath, IsNoneForALinkIntoAnEADirectory) {
  namespace fs = std::filesystem;
  TempDir folder;
  WriteFile(folder / ".tavi_ea/a.jpg/THUMB.jpg", "thumbnail");
  fs::create_symlink(".tavi_ea/a.jpg/THUMB.jpg", folder / "file");
  fs::create_symlink(folder / "file", folder / "file-by-two-links");
  fs::create_directory_symlink(".tavi_ea/a.jpg", folder / "directory");
  fs::create_directory_symlink(".tavi_ea", folder / "root");
  for (const char* source : {"file", "file-by-two-links", "directory", "directory/THUMB.jpg", "directory/missing.jpg",
                             "root/a.jpg", "root/a.jpg/THUMB.jpg", "root/missing.jpg"}) {
    SCOPED_TRACE(source);
    EXPECT_EQ(EADirPath(folder / source), "none");
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(EAPath(folder / source, "THUMB"), "none");
    EXPECT_EQ(errno, EINVAL);
    CheckInProcess([&] {
      ASSERT_EQ(chdir(folder.Path().c_str()), 0);
      EXPECT_EQ(EAPath(source, "THUMB"), "none");
    });
  }
}

TEST(EAPath, OfAnyOtherLinkIsInTheFolderOfTheLink) {
  namespace fs = std::filesystem;
  TempDir folder;
  WriteFile(folder / "photos/a.jpg", "photo");
  fs::create_symlink("photos/a.jpg", folder / "file");
  fs::create_symlink(".tavi_ea/missing", folder / "dangling");
  fs::create_directory_symlink("photos", folder / "directory");
  for (const auto& [source, directory] :
       {std::pair("file", ".tavi_ea/file"), std::pair("directory/a.jpg", "directory/.tavi_ea/a.jpg"),
        std::pair("directory/missing.jpg", "directory/.tavi_ea/missing.jpg"),
        std::pair("dangling", ".tavi_ea/dangling")}) {
    EXPECT_EQ(EADirPath(folder / source), folder / directory);
    EXPECT_EQ(EAPath(folder / source, "THUMB"), (folder / directory) + "/THUMB");
  }
}

TEST(EAPath, IsNoneForARelativeSourceWhenTheWorkingDirectoryIsAnEADirectory) {
  TempDir folder;
  std::filesystem::create_directories(folder / ".tavi_ea/a.jpg");
  CheckInProcess([&] {
    ASSERT_EQ(chdir((folder / ".tavi_ea/a.jpg").c_str()), 0);
    EXPECT_EQ(EADirPath("THUMB.jpg"), "none");
    EXPECT_EQ(EAPath("./THUMB.jpg", "THUMB"), "none");
    EXPECT_EQ(EADirPath("/v/a.jpg"), "/v/.tavi_ea/a.jpg");
  });
}

TEST(EAPath, FillsABufferThatIsJustLargeEnoughAndLeavesASmallerOneAlone) {
  const std::string whole = "/v/.tavi_ea/a.jpg/THUMB";
  std::vector<char> buffer(64, '#');
  EXPECT_EQ(TAVIEAPath(0, "/v/a.jpg", "THUMB", buffer.data(), whole.size() + 1, 0), 0);
  EXPECT_EQ(std::string(buffer.data()), whole);
  EXPECT_EQ(buffer[whole.size() + 1], '#');

  const std::vector<char> untouched(64, '#');
  for (const std::size_t size : {whole.size(), std::size_t{1}, std::size_t{0}}) {
    SCOPED_TRACE(size);
    buffer = untouched;
    errno = 0;
    EXPECT_LT(TAVIEAPath(0, "/v/a.jpg", "THUMB", buffer.data(), size, 0), 0);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(buffer, untouched);
  }
}

TEST(EADirPath, FillsABufferThatIsJustLargeEnoughAndLeavesASmallerOneAlone) {
  const std::string whole = "/v/.tavi_ea/a.jpg";
  std::vector<char> buffer(64, '#');
  EXPECT_EQ(TAVIEADirPath(0, "/v/a.jpg", buffer.data(), whole.size() + 1), 0);
  EXPECT_EQ(std::string(buffer.data()), whole);

  const std::vector<char> untouched(64, '#');
  buffer = untouched;
  errno = 0;
  EXPECT_NE(TAVIEADirPath(0, "/v/a.jpg", buffer.data(), whole.size()), 0);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(buffer, untouched);
}

TEST(EAPath, TouchesNothingOnDisk) {
  TempDir folder;
  EXPECT_EQ(EAPath(folder / "missing.jpg", "THUMB"), folder / ".tavi_ea/missing.jpg/THUMB");
  EXPECT_EQ(EADirPath(folder / "missing.jpg"), folder / ".tavi_ea/missing.jpg");
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{});
}

}  // namespace
}  // namespace tavithumb::test
