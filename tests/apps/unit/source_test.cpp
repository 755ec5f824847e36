// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/source.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pictures.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <temp_dir.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "command/batch/work.h"
#include "system/file_descriptor.h"
#include "thumbs/source_facts.h"

namespace fs = std::filesystem;

namespace tavithumb::apps {
namespace {

FileDescriptor Locked(const std::string& path, int kind) {
  FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(flock(file.Number(), kind), 0);
  return file;
}

TEST(SourceLocks, AreRefusedOnlyWhileAnotherProcessMakesThumbnails) {
  const test::TempDir folder;
  test::WriteFile(folder / "a.jpg", "photo");
  Source source(AT_FDCWD, folder / "a.jpg");
  {
    const FileDescriptor maker = Locked(folder / "a.jpg", LOCK_EX);
    EXPECT_FALSE(source.TryLock());
  }
  errno = EWOULDBLOCK;  // of an earlier call
  EXPECT_TRUE(source.TryLock());
  const FileDescriptor other(open((folder / "a.jpg").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(flock(other.Number(), LOCK_EX | LOCK_NB), -1) << "not locked";
}

TEST(HalfMade, ThumbnailsAreRemovedUnlessAnotherProcessMakesThemNow) {
  const test::TempDir folder;
  const std::string path = folder / "a.jpg", stored = folder / ".tavi_ea/a.jpg/TAVIFILE_THUMB_S.jpg";
  test::WriteFile(path, "photo");
  test::WriteFile(stored, "thumbnail");
  const command::Making making = {"TAVIFILE_THUMB_S.jpg", {"none"}, 0};
  {
    const FileDescriptor maker = Locked(path, LOCK_SH);
    command::RemoveHalfMade(path, making);
    EXPECT_TRUE(test::Exists(stored));
  }
  command::RemoveHalfMade(path, {making.entry, making.temporaries, std::time(nullptr) + 1000});
  EXPECT_TRUE(test::Exists(stored)) << "it was there before";
  command::RemoveHalfMade(path, making);
  EXPECT_FALSE(test::Exists(stored));
}

TEST(FactsOfASource, AreCurrentWhileItIsTheSameFileOfTheSameSizeAndTime) {
  const test::TempDir folder;
  const std::string path = folder / "a.png";
  const timespec times[] = {{1, 2}, {1000000000, 5}}, later[] = {{1, 2}, {1000000001, 5}},
                 finer[] = {{1, 2}, {1000000000, 6}};
  const std::vector<std::function<void()>> changes = {
      [&] { fs::remove(path); },
      [&] { fs::copy_file(path, folder / "b.png"), fs::rename(folder / "b.png", path); },
      [&] { fs::resize_file(path, fs::file_size(path) + 1); },
      [&] { utimensat(AT_FDCWD, path.c_str(), later, 0); },
      [&] { utimensat(AT_FDCWD, path.c_str(), finer, 0); },
  };
  for (std::size_t i = 0; i < changes.size(); ++i) {
    SCOPED_TRACE(i);
    test::MakePng(path, 8, 4);
    utimensat(AT_FDCWD, path.c_str(), times, 0);
    const SourceFacts facts(path);
    EXPECT_TRUE(facts.AreCurrent());
    changes[i]();
    if (i < 3) utimensat(AT_FDCWD, path.c_str(), times, 0);
    EXPECT_FALSE(facts.AreCurrent());
  }
}

}  // namespace
}  // namespace tavithumb::apps
