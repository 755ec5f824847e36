// SPDX-License-Identifier: GPL-3.0-or-later
// What is remembered of photos and thumbnails, and when a file is read again.
#include "thumbs/file_memory.h"

#include <gtest/gtest.h>
#include <pictures.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <temp_dir.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "system/file_descriptor.h"

namespace tavithumb::test {
namespace {

using apps::FileDescriptor;
using apps::FileMemory;

// Counts how often a file is opened, by anybody.
class OpenCount {
 public:
  explicit OpenCount(const std::string& path) : watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    inotify_add_watch(watch_.Number(), path.c_str(), IN_OPEN);
  }

  // Since the last call. Equal events that follow each other are one.
  bool Was() const {
    std::array<char, 4096> events;
    return read(watch_.Number(), events.data(), events.size()) > 0;
  }

 private:
  FileDescriptor watch_;
};

// Files that have not changed for a while.
class FileMemories : public testing::Test {
 protected:
  void SetUp() override {
    MakeJpeg(photo, 800, 600);
    MakePng(drawing, 80, 60);
    WriteFile(text, std::string(2000, 'x'));
    sleep(3);
  }

  std::string Facts(const std::string& path, bool byLibrary = false) {
    Thumb job(path, 0, false);
    memory.ReadFacts(byLibrary, &job);
    const ThumbInfo& info = job.GetInfo();
    return info.GetMimeType() + " " + std::to_string(info.GetWidth()) + "x" + std::to_string(info.GetHeight()) + " " +
           std::to_string(info.GetRotate()) + (info.IsGood() ? " good" : "") + (info.IsHeic() ? " heic" : "");
  }

  const TempDir folder;
  const std::string photo = folder / "photo.jpg", drawing = folder / "drawing.png", text = folder / "text.jpg";
  FileMemory memory;
};

TEST_F(FileMemories, GiveTheFactsOfAnUnchangedPhotoWithoutOpeningIt) {
  const OpenCount opened(photo);
  const std::string facts = "image/jpeg 800x600 0 good";
  EXPECT_EQ(Facts(photo), facts);
  EXPECT_TRUE(opened.Was());
  EXPECT_EQ(Facts(photo), facts);
  EXPECT_FALSE(opened.Was());
  std::filesystem::rename(photo, folder / "other.jpg");  // changes its time: it is read once more
  EXPECT_EQ(Facts(folder / "other.jpg"), facts);
  EXPECT_TRUE(opened.Was());
}

TEST_F(FileMemories, ReadAnotherFileOfTheSameNameAndTime) {
  EXPECT_EQ(Facts(photo), "image/jpeg 800x600 0 good");
  const std::time_t time = ModificationTime(photo);
  MakeJpeg(photo + ".new", 400, 300);
  SetTimes(photo + ".new", time, time);
  std::filesystem::rename(photo + ".new", photo);
  EXPECT_EQ(Facts(photo), "image/jpeg 400x300 0 good");
}

TEST_F(FileMemories, ReadAFileThatHasJustChangedEachTime) {
  MakeJpeg(photo, 400, 300);
  const OpenCount opened(photo);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Facts(photo), "image/jpeg 400x300 0 good");
    EXPECT_TRUE(opened.Was());
  }
}

TEST_F(FileMemories, KeepTheLibrarysFactsApart) {
  std::filesystem::copy_file(drawing, folder / "drawing.hif");  // which the library does not know by its name
  EXPECT_EQ(Facts(drawing), Facts(drawing, true));
  const OpenCount opened(drawing);
  EXPECT_EQ(Facts(drawing), Facts(drawing, true));
  EXPECT_FALSE(opened.Was());
}

TEST_F(FileMemories, DoNotRememberWhatHasNoFacts) {
  const OpenCount opened(text);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Facts(text), " 0x0 0");
    EXPECT_TRUE(opened.Was());
  }
}

TEST_F(FileMemories, KnowTheContentOfAThumbnail) {
  const OpenCount opened(drawing), openedText(text);
  for (int i = 0; i < 2; ++i) {
    const std::optional<maker::Content> content = memory.Examine(drawing);
    ASSERT_TRUE(content);
    EXPECT_EQ(content->stored, (maker::Size{80, 60}));
    EXPECT_EQ(content->format, maker::Format::kPng);
    EXPECT_EQ(opened.Was(), i == 0);
    EXPECT_FALSE(memory.Examine(text));
    EXPECT_EQ(openedText.Was(), i == 0);
  }
  EXPECT_FALSE(memory.Examine(folder / "missing"));
}

TEST_F(FileMemories, KnowWhichThumbnailsWereComplete) {
  const FileDescriptor maker(open(photo.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(maker.Number(), LOCK_EX), 0);
  EXPECT_FALSE(memory.IsComplete(drawing, photo));
  flock(maker.Number(), LOCK_UN);
  const OpenCount opened(photo);
  EXPECT_TRUE(memory.IsComplete(drawing, photo));
  EXPECT_TRUE(opened.Was());
  ASSERT_EQ(flock(maker.Number(), LOCK_EX), 0);
  EXPECT_TRUE(memory.IsComplete(drawing, photo)) << "of which another size is being made";
  EXPECT_FALSE(opened.Was());
  MakePng(drawing, 90, 60);
  EXPECT_FALSE(memory.IsComplete(drawing, photo)) << "which is being written again";
}

}  // namespace
}  // namespace tavithumb::test
