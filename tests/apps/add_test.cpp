// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb add`: where thumbnails are stored, and that none is lost.
#include <pictures.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;

constexpr char kMediumPng[] = "TAVIFILE_THUMB_M.png";

class Add : public testing::Test {
 protected:
  Add() {
    MakePng(source, 800, 600);
    SetTimes(source, 1000000, 1000000);
    MakePng(thumbnail, 60, 40);
    content = ReadFile(thumbnail);
  }

  Outcome Run(std::vector<std::string> arguments, const Start& start = {}) const {
    arguments.insert(arguments.begin(), "add");
    return run(arguments, start);
  }

  // Asserts that the thumbnail was rejected, and is still where it was.
  void ExpectRefusal(const std::vector<std::string>& arguments, const std::string& name, const std::string& reason,
                     const Start& start = {}) const {
    const Outcome outcome = Run(arguments, start);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "tavithumb: " + name + ": " + reason + "\n");
    EXPECT_EQ(ReadFile(thumbnail), content);
  }

  // Whoever stored it.
  void ExpectTime(std::time_t expected) const { EXPECT_EQ(ModificationTime(place), expected); }

  const TempDir folder;
  const TempDir other;
  const std::string source = folder / "photo.png";
  const std::string thumbnail = other / "small.png";
  const std::string place = EntryOf(source, kMediumPng);
  std::string content;
  const CommandRunner run;
};

TEST_F(Add, MakesAllSizesOfAVideoFromOnePicture) {
  const std::string video = folder / "film.mp4", poster = other / "poster.jpg";
  WriteFile(video, "film");
  MakeJpeg(poster, 800, 600);
  SetExif(poster, {{"Exif.Image.Orientation", "6"}});
  RunTool({"/usr/bin/convert", poster, "-auto-orient", other / "upright.png"});
  const Outcome outcome = Run({"--size", "all", video, poster});
  EXPECT_EQ(outcome.code, 0) << outcome;
  std::string expected;
  for (const char* letter : {"S", "M", "B", "XL"}) {
    const std::string entry = EntryOf(video, "TAVIFILE_THUMB_" + std::string(letter) + ".jpg");
    expected += entry + "\n";
    EXPECT_LT(Difference(entry, other / "upright.png"), 0.02) << letter;
    EXPECT_EQ(ModificationTime(entry), ModificationTime(video));
  }
  EXPECT_EQ(outcome.out, expected);
  EXPECT_EQ(Identify(EntryOf(video, "TAVIFILE_THUMB_S.jpg")).width, 90);
  EXPECT_FALSE(fs::exists(poster));
  EXPECT_EQ(run({"get", "--size", "big", video}).out, EntryOf(video, "TAVIFILE_THUMB_B.jpg") + "\n");
}

TEST_F(Add, MakesNoSizesFromWhatIsNoPictureOfTheType) {
  const std::string video = folder / "film.mp4";
  WriteFile(video, "film");
  ExpectRefusal({"--size", "all", video, thumbnail}, thumbnail,
                "it is image/png, but thumbnails of its source are image/jpeg; convert it");
  EXPECT_EQ(Run({"--size", "all", "--mtime", "1", video, thumbnail}).code, 2);
  EXPECT_EQ(Names(EntryOf(video, "")), std::vector<std::string>{});
}

TEST_F(Add, MovesAThumbnailToWhereGetFindsIt) {
  const Outcome outcome = Run({"--size", "medium", source, thumbnail});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, place + "\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(Names(other.Path()), std::vector<std::string>{});
  EXPECT_EQ(ReadFile(place), content);
  ExpectTime(1000000);
  EXPECT_EQ(run({"get", source}).out, place + "\n");
  EXPECT_EQ(ReadFile(place), content);
}

TEST_F(Add, StoresUnderTheNameOfEachSize) {
  for (const auto& [size, entry] :
       std::vector<std::pair<std::string, std::string>>{{"small", "TAVIFILE_THUMB_S.png"},
                                                        {"medium", "TAVIFILE_THUMB_M.png"},
                                                        {"big", "TAVIFILE_THUMB_B.png"},
                                                        {"large", "TAVIFILE_THUMB_XL.png"},
                                                        {"xlarge", "TAVIFILE_THUMB_XL.png"}}) {
    WriteFile(thumbnail, size);
    EXPECT_EQ(Run({"--size", size, source, thumbnail}).out, EntryOf(source, entry) + "\n");
    EXPECT_EQ(ReadFile(EntryOf(source, entry)), size);
  }
}

TEST_F(Add, UsesTheNameOfTheSource) {
  const std::string jpeg = folder / "turned.jpg";
  MakeJpeg(jpeg, 800, 600);
  SetExif(jpeg, {{"Exif.Image.Orientation", "6"}});
  const std::string video = folder / "clip.mp4";
  WriteFile(video, "no real video");
  const std::string text = folder / "text.jpg";
  WriteFile(text, "This is a text that is longer than thirty-one bytes.\n");
  for (const auto& [photo, entry] : std::vector<std::pair<std::string, std::string>>{
           {jpeg, "TAVIFILE_THUMB_M_r1.jpg"}, {video, "TAVIFILE_THUMB_M.jpg"}, {text, "TAVIFILE_THUMB_M.jpg"}}) {
    WriteFile(thumbnail, content);
    const Outcome outcome = Run({"--size=medium", photo, thumbnail});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, EntryOf(photo, entry) + "\n");
    EXPECT_EQ(ReadFile(EntryOf(photo, entry)), content);
  }
}

TEST_F(Add, SetsTheRequestedTime) {
  EXPECT_EQ(Run({"--size=medium", "--mtime=1700000000", source, thumbnail}).code, 0);
  ExpectTime(1700000000);
}

TEST_F(Add, ReplacesWhatIsStored) {
  WriteFile(place, "older");
  EXPECT_EQ(Run({"--size=medium", source, thumbnail}).out, place + "\n");
  EXPECT_EQ(ReadFile(place), content);
  // An entry that exists already stays where it is.
  const Outcome again = Run({"--size=medium", source, place});
  EXPECT_EQ(again.code, 0);
  EXPECT_EQ(again.out, place + "\n");
  EXPECT_EQ(ReadFile(place), content);
}

TEST_F(Add, ContinuesAfterARejection) {
  MakePng(folder / "second.png", 80, 60);
  WriteFile(other / "second.png", "second");
  const Outcome outcome =
      Run({"--size=small", "photo.png", "missing.png", "second.png", other / "second.png"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, EntryOf(folder / "second.png", "TAVIFILE_THUMB_S.png") + "\n");
  EXPECT_EQ(outcome.err, "tavithumb: missing.png: it does not exist; check its name\n");
}

TEST_F(Add, RejectsAnythingThatIsNotAThumbnail) {
  fs::create_directory(other / "folder.png");
  fs::create_symlink("small.png", other / "link.png");
  ASSERT_EQ(mkfifo((other / "pipe.png").c_str(), 0600), 0);
  fs::create_hard_link(source, other / "photo.png");
  for (const auto& [name, reason] : std::vector<std::pair<std::string, std::string>>{
           {other / "folder.png", "it is a folder; name a picture in it"},
           {other / "link.png", "it is a symbolic link; name the file that it points to"},
           {other / "pipe.png", "it is not a regular file; name a picture"},
           {other / "photo.png", "it is the source itself; name another file"},
           {source, "it is the source itself; name another file"},
           {std::string(100000, 'n'), "it cannot be accessed: File name too long; check its path"}}) {
    ExpectRefusal({"--size=medium", source, name}, name, reason);
  }
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{"photo.png"});
  EXPECT_EQ(Names(other.Path()),
            (std::vector<std::string>{"folder.png", "link.png", "photo.png", "pipe.png", "small.png"}));
}

TEST_F(Add, RejectsAnythingThatIsNotASource) {
  WriteFile(folder / "notes.txt", "text");
  WriteFile(folder / "empty.jpg", "");
  WriteFile(folder / ".tavi_ea/b.png/a.png", ReadFile(source));
  for (const auto& [name, reason] : std::vector<std::pair<std::string, std::string>>{
           {folder / "missing.jpg", "it does not exist; check its name"},
           {folder.Path(), "it is a folder; name the files in it"},
           {folder / "notes.txt",
            "it is not a photo or video by its name; give it the right extension, such as .jpg or .mp4"},
           {folder / "empty.jpg", "it is damaged; get a fresh copy of it"},
           {folder / ".tavi_ea/b.png/a.png",
            "there is no place for a thumbnail next to it; copy it to an ordinary folder with a shorter path"}}) {
    ExpectRefusal({"--size=medium", name, thumbnail}, name, reason);
  }
}

TEST_F(Add, RejectsAnEntryTakenBySomethingOtherThanAFile) {
  const std::string reason = "the path of its thumbnail is taken by something other than a file; remove " + place;
  fs::create_directories(place);
  ExpectRefusal({"--size=medium", source, thumbnail}, source, reason);
  EXPECT_EQ(Names(place), std::vector<std::string>{});
  fs::remove(place);
  fs::create_symlink(other.Path(), place);
  ExpectRefusal({"--size=medium", source, thumbnail}, source, reason);
}

TEST_F(Add, RejectsOtherTypesWithCheckType) {
  MakeJpeg(other / "small.jpg", 60, 40);
  WriteFile(other / "text.png", "This is a text that is longer than thirty-one bytes.\n");
  ExpectRefusal({"--check-type", "--size=medium", source, other / "small.jpg"}, other / "small.jpg",
                "it is image/jpeg, but thumbnails of its source are image/png; convert it, or leave out --check-type");
  ExpectRefusal({"--check-type", "--size=medium", source, other / "text.png"}, other / "text.png",
                "its content is not in a known image format; check that it opens in another program");
  EXPECT_EQ(Names(other.Path()), (std::vector<std::string>{"small.jpg", "small.png", "text.png"}));
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{"photo.png"});
  EXPECT_EQ(Run({"--check-type", "--size=medium", source, thumbnail}).out, place + "\n");
  EXPECT_EQ(Run({"--size=medium", source, other / "small.jpg"}).out, place + "\n");
}

TEST_F(Add, RejectsAVolumeThatCannotStoreThumbnails) {
  Start start;
  start.environment = Preloading(NO_EA_VOLUME);
  ExpectRefusal({"--size=medium", source, thumbnail}, source,
                "thumbnails cannot be stored on its volume; request them one by one with 'tavithumb get', or copy it "
                "to a local disk",
                start);
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{"photo.png"});
}

TEST_F(Add, RejectsAFolderThatTheUserMayNotWriteTo) {
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  for (const std::string& path : {folder.Path(), other.Path()}) fs::permissions(path, fs::perms(0755));
  fs::permissions(source, fs::perms(0644));
  ExpectRefusal({"--size=medium", source, thumbnail}, source,
                "no thumbnail can be written next to it; make its folder writable, or work on a copy", As(kNobody));
  WriteFile(place, "older");
  fs::permissions(fs::path(place).parent_path(), fs::perms(0777));
  ExpectRefusal({"--size=medium", source, thumbnail}, thumbnail,
                "it could not be moved; make its folder writable, and check that the disk has space", As(kNobody));
  EXPECT_EQ(ReadFile(place), "older");
  fs::permissions(other.Path(), fs::perms(0777));
  EXPECT_EQ(Run({"--size=medium", source, thumbnail}, As(kNobody)).out, place + "\n");
}

// Across volumes a file is copied, and the copy may stop half way.
class AddAcrossVolumes : public Add {
 protected:
  void SetUp() override {
    struct stat here = {};
    struct stat there = {};
    if (mkdtemp(remote.data()) == nullptr || stat(remote.c_str(), &there) != 0) GTEST_SKIP() << "no /dev/shm";
    ASSERT_EQ(stat(folder.Path().c_str(), &here), 0);
    if (here.st_dev == there.st_dev) GTEST_SKIP() << "/dev/shm is no volume of its own";
    large = remote + "/large.png";
    WriteFile(large, std::string(100000, 'p'));
  }
  ~AddAcrossVolumes() override {
    std::error_code ignored;
    fs::remove_all(remote, ignored);
  }

  std::string remote = "/dev/shm/tavithumb-test-XXXXXX";
  std::string large;
};

TEST_F(AddAcrossVolumes, MovesAThumbnail) {
  WriteFile(place, "older");
  const Outcome outcome = Run({"--size=medium", source, large});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, place + "\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(ReadFile(place), std::string(100000, 'p'));
  EXPECT_EQ(Names(remote), std::vector<std::string>{});
}

TEST_F(AddAcrossVolumes, LeavesNoPartialThumbnail) {
  for (const bool isStored : {false, true}) {
    if (isStored) WriteFile(place, "older");
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit small = before;
    small.rlim_cur = 50000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const Outcome outcome = Run({"--size=medium", source, large});
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "tavithumb: " + large +
                  ": it could not be moved; make its folder writable, and check that the disk has space\n");
    EXPECT_EQ(ReadFile(large), std::string(100000, 'p'));
    EXPECT_EQ(Names(EntryOf(source, "")), std::vector<std::string>{});
  }
}

TEST_F(Add, AcceptsNamesWithAnyBytes) {
  for (const std::string& name :
       {std::string("new\nline.png"), std::string("latin\xfc.png"), std::string("-dash.png")}) {
    fs::copy_file(source, folder / name);
    WriteFile(other / name, content);
    const Outcome outcome = Run({"--size=medium", "--", name, other / name}, In(folder.Path()));
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, EntryOf(folder / name, kMediumPng) + "\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(ReadFile(EntryOf(folder / name, kMediumPng)), content);
  }
}

}  // namespace
}  // namespace tavithumb::test
