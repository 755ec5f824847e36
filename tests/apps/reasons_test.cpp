// SPDX-License-Identifier: GPL-3.0-or-later
// Why a file has no answer: one line with its name, the reason and the remedy.
#include <films.h>
#include <pictures.h>
#include <sys/stat.h>

#include <filesystem>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;

class Reasons : public testing::Test {
 protected:
  // Asserts the whole outcome for one file without an answer, as lines and as JSON.
  void ExpectNoAnswer(std::vector<std::string> arguments, const std::string& source, const std::string& reason,
                      const std::string& remedy, uid_t user = 0) const {
    SCOPED_TRACE(source);
    const Start start = As(user);
    arguments.push_back(source);
    const Outcome lines = run(arguments, start);
    EXPECT_EQ(lines.code, 1);
    EXPECT_EQ(lines.out, "");
    EXPECT_EQ(lines.err, "tavithumb: " + source + ": " + reason + "; " + remedy + "\n");
    arguments.push_back("--json");
    const Outcome objects = run(arguments, start);
    EXPECT_EQ(objects.code, 1);
    EXPECT_EQ(objects.err, lines.err);
    EXPECT_EQ(ObjectsOf(objects.out), (std::vector<nlohmann::json>{{{"source", source}, {"error", reason}}}));
  }

  void ExpectNoAnswerFromBoth(const std::string& source, const std::string& reason, const std::string& remedy,
                              uid_t user = 0) const {
    for (const char* subcommand : {"get", "info"}) ExpectNoAnswer({subcommand}, source, reason, remedy, user);
  }

  // A bitmap with readable facts and unreadable pixels: its header has an impossible width.
  static void MakeAbsurdBitmap(const std::string& path) {
    MakeBmp(path, 60, 40);
    std::string content = ReadFile(path);
    content.replace(18, 4, "\x81\xff\xff\xff");
    WriteFile(path, content);
  }

  const TempDir folder;
  const CommandRunner run;
};

TEST_F(Reasons, DoesNotExist) {
  ExpectNoAnswerFromBoth(folder / "missing.jpg", "it does not exist", "check its name");
  fs::create_symlink("nowhere", folder / "dangling.jpg");
  ExpectNoAnswerFromBoth(folder / "dangling.jpg", "it does not exist", "check its name");
  WriteFile(folder / "file.jpg", "");
  ExpectNoAnswerFromBoth(folder / "file.jpg/inside.jpg", "it does not exist", "check its name");
  ExpectNoAnswerFromBoth(folder / "file.jpg/", "it does not exist", "check its name");
}

TEST_F(Reasons, NotAccessible) {
  ExpectNoAnswerFromBoth(folder / (std::string(300, 'n') + ".jpg"), "it cannot be accessed: File name too long",
                         "check its path");
  fs::create_symlink("loop.jpg", folder / "loop.jpg");
  ExpectNoAnswerFromBoth(folder / "loop.jpg", "it cannot be accessed: Too many levels of symbolic links",
                         "check its path");
}

TEST_F(Reasons, NotAFile) {
  fs::create_directory(folder / "album.jpg");
  ExpectNoAnswerFromBoth(folder / "album.jpg", "it is a folder", "name the files in it");
  ASSERT_EQ(mkfifo((folder / "pipe.jpg").c_str(), 0600), 0);
  ExpectNoAnswerFromBoth(folder / "pipe.jpg", "it is not a regular file", "name a photo or video file");
}

TEST_F(Reasons, NotAPhotoOrVideoByItsName) {
  for (const char* name : {"notes.txt", "picture.jp2", "README", "album.jpg.bak", "photo.jpg "}) {
    WriteFile(folder / name, "text");
    ExpectNoAnswerFromBoth(folder / name, "it is not a photo or video by its name",
                           "give it the right extension, such as .jpg or .mp4");
  }
}

TEST_F(Reasons, Damaged) {
  WriteFile(folder / "empty.jpg", "");
  ExpectNoAnswerFromBoth(folder / "empty.jpg", "it is damaged", "get a fresh copy of it");
  MakeJpeg(folder / "odd.jpg", 60, 40);
  RunTool({"/usr/bin/exiv2", "-M", "set Exif.Image.Orientation Ascii up", folder / "odd.jpg"});
  ExpectNoAnswerFromBoth(folder / "odd.jpg", "it is damaged", "get a fresh copy of it");
  MakeJpeg(folder / "cut.jpg", 600, 400);
  fs::resize_file(folder / "cut.jpg", 200);
  ExpectNoAnswerFromBoth(folder / "cut.jpg", "it is damaged", "get a fresh copy of it");
}

TEST_F(Reasons, UnknownContent) {
  for (const char* name : {"text.jpg", "text.heic", "text.x3f"}) {
    WriteFile(folder / name, "This is a text that is longer than thirty-one bytes.\n");
    ExpectNoAnswerFromBoth(folder / name, "its content is not in a known image format",
                           "check that it opens in another program");
  }
}

TEST_F(Reasons, NoStillOfAVideo) {
  if (!HasFilmTools()) GTEST_SKIP() << "needs ffmpegthumbnailer";
  WriteFile(folder / "clip.mp4", "no real video");
  for (const char* size : {"--size=medium", "--size=10x10", "--avatar"}) {
    ExpectNoAnswer({"get", size}, folder / "clip.mp4", "no still could be taken of this video",
                   "check that it plays in another program");
  }
}

TEST_F(Reasons, NoScreenshotOfAVideo) {
  WriteFile(folder / "clip.mp4", "no real video");
  for (const char* size : {"--size=medium", "--size=10x10"}) {
    ExpectNoAnswer({"get", "--library", size}, folder / "clip.mp4", "no screenshot is stored for this video",
                   "store one first, or leave out --library");
  }
}

TEST_F(Reasons, NothingStoredAndConvertingForbidden) {
  MakePng(folder / "a.png", 600, 400);
  ExpectNoAnswer({"get", "--no-convert"}, folder / "a.png",
                 "no thumbnail is stored and --no-convert forbids making one", "leave out --no-convert");
}

TEST_F(Reasons, AnOriginalThatBrowsersCannotShow) {
  MakeTiff(folder / "a.tif", 60, 40);
  ExpectNoAnswer({"get", "--size=original"}, folder / "a.tif", "a browser cannot show the original",
                 "ask for a smaller size, or add --fallback-smaller");
}

TEST_F(Reasons, CouldNotBeConverted) {
  // The second name could stand for other files, but there are none.
  for (const char* name : {"absurd.bmp", "absurd[1].bmp"}) {
    MakeAbsurdBitmap(folder / name);
    ExpectNoAnswer({"get"}, folder / name, "it could not be converted",
                   "check that it opens in another program and that the disk has space");
  }
}

TEST_F(Reasons, TooLarge) {
  MakePng(folder / "vast.png", 8, 8);
  std::string vast = ReadFile(folder / "vast.png");
  vast.replace(16, 8, std::string("\x00\x00\x75\x30\x00\x00\x4e\x20", 8));  // its width and height
  WriteFile(folder / "vast.png", vast);
  ExpectNoAnswer({"get"}, folder / "vast.png", "it is too large to be converted (30000x20000 pixels)",
                 "save a smaller copy of it");
}

TEST_F(Reasons, NothingCanBeWrittenNextToIt) {
  MakePng(folder / "a.png", 600, 400);
  WriteFile(folder / ".tavi_ea", "in the way");
  ExpectNoAnswer({"get"}, folder / "a.png", "no thumbnail can be written next to it",
                 "make its folder writable, or work on a copy");
  ExpectNoAnswer({"get", "--size=50x50"}, folder / "a.png", "no thumbnail can be written next to it",
                 "make its folder writable, or work on a copy");
}

TEST_F(Reasons, TheThumbnailCouldNotBeMovedIntoPlace) {
  const TempDir other;
  const std::string source = folder / "camera.jpg";
  MakeJpeg(source, 1600, 1200);
  MakeJpeg(other / "preview.jpg", 400, 300);
  SetPreview(source, other / "preview.jpg");
  const std::string place = EntryOf(source, "TAVIFILE_THUMB_M.jpg");
  WriteFile(place + "/in-the-way", "");
  SetTimes(place, 1, 1);
  ExpectNoAnswer({"get", "--no-convert"}, source, "no thumbnail is stored and --no-convert forbids making one",
                 "leave out --no-convert");
}

TEST_F(Reasons, NoPlaceNextToIt) {
  const std::string source = folder / ".tavi_ea/b.png/a.png";
  WriteFile(source, "");
  MakePng(source, 600, 400);
  ExpectNoAnswer({"get"}, source, "there is no place for a thumbnail next to it",
                 "copy it to an ordinary folder with a shorter path");
}

TEST_F(Reasons, PermissionDenied) {
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  MakePng(folder / "closed.png", 600, 400);
  fs::permissions(folder.Path(), fs::perms(0755));
  fs::permissions(folder / "closed.png", fs::perms(0600));
  ExpectNoAnswerFromBoth(folder / "closed.png", "permission denied", "ask its owner for read permission", kNobody);
  fs::permissions(folder.Path(), fs::perms(0700));
  ExpectNoAnswerFromBoth(folder / "closed.png", "permission denied", "ask its owner for read permission", kNobody);
}

TEST_F(Reasons, AFolderThatTheUserMayNotWriteTo) {
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  MakePng(folder / "a.png", 600, 400);
  fs::permissions(folder.Path(), fs::perms(0755));
  fs::permissions(folder / "a.png", fs::perms(0644));
  ExpectNoAnswer({"get"}, folder / "a.png", "no thumbnail can be written next to it",
                 "make its folder writable, or work on a copy", kNobody);
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{"a.png"});
}

}  // namespace
}  // namespace tavithumb::test
