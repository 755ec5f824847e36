// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb render`: one picture, stored nowhere.
#include <pictures.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "command_runner.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Arguments = std::vector<std::string>;

std::string SizeOf(const std::string& picture) {
  const PictureFacts facts = Identify(picture);
  return facts.format + " " + std::to_string(facts.width) + "x" + std::to_string(facts.height);
}

class Render : public testing::Test {
 protected:
  // What a run prints and how it ends, "" for a run that prints nothing and ends with 0.
  std::string Errors(Arguments arguments, const Start& start = {}) const {
    arguments.insert(arguments.begin(), "render");
    const Outcome outcome = run(arguments, start);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.code, outcome.err.empty() ? 0 : 1) << outcome;
    return outcome.err;
  }

  const TempDir folder;
  const std::string photo = folder / "photo.jpg";
  const std::string out = folder / "out.jpg";
  const CommandRunner run;
};

TEST_F(Render, WritesThePictureThatIsAskedFor) {
  MakeJpeg(photo, 900, 600);
  const struct {
    Arguments options;
    const char* name;
    const char* facts;
    Arguments reference;  // ImageMagick's arguments for the same picture
  } rows[] = {
      {{}, "a.jpg", "JPEG 360x240", {}},
      {{}, "a.png", "PNG 360x240", {}},
      {{}, "a.webp", "WEBP 360x240", {}},
      {{"--format", "png"}, "a", "PNG 360x240", {}},
      {{"-s", "small"}, "a.jpg", "JPEG 120x80", {}},
      {{"--size", "100x50"}, "a.jpg", "JPEG 75x50", {}},
      {{"--size", "96", "--avatar"}, "a.png", "PNG 96x96", {"-gravity", "center", "-crop", "600x600+0+0", "+repage"}},
      {{"--rotate", "1"}, "a.jpg", "JPEG 240x360", {"-rotate", "90"}},
      {{"--rotate", "-1"}, "a.webp", "WEBP 240x360", {"-rotate", "270"}},
      {{"--size", "original"}, "a.jpg", "JPEG 900x600", {}},
      {{"--size", "5000"}, "a.png", "PNG 900x600", {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.options) + row.name);
    const std::string made = folder / row.name;
    Arguments arguments = row.options;
    arguments.insert(arguments.end(), {photo, made});
    EXPECT_EQ(Errors(arguments), "");
    EXPECT_EQ(SizeOf(made), row.facts);
    Arguments convert = {"/usr/bin/convert", photo};
    convert.insert(convert.end(), row.reference.begin(), row.reference.end());
    convert.push_back(folder / "reference.png");
    RunTool(convert);
    EXPECT_LT(Difference(made, folder / "reference.png"), 0.03);
    fs::remove(made);
  }
  EXPECT_EQ(Names(folder.Path()), (Arguments{"photo.jpg", "reference.png"})) << "nothing is stored";
}

TEST_F(Render, TakesFewerBytesForALowerQuality) {
  MakeJpeg(photo, 900, 600);
  for (const char* name : {"a.jpg", "a.webp"}) {
    EXPECT_EQ(Errors({"--quality", "10", photo, folder / name}), "");
    const std::uintmax_t poor = fs::file_size(folder / name);
    EXPECT_EQ(Errors({"--quality", "95", photo, folder / name}), "");
    EXPECT_LT(poor, fs::file_size(folder / name)) << name;
  }
}

TEST_F(Render, TurnsThePhotoUpright) {
  MakeJpeg(photo, 900, 600);
  RunTool({"/usr/bin/convert", photo, "-rotate", "-90", folder / "stored.jpg"});
  SetExif(folder / "stored.jpg", {{"Exif.Image.Orientation", "6"}});
  EXPECT_EQ(Errors({folder / "stored.jpg", out}), "");
  EXPECT_EQ(SizeOf(out), "JPEG 360x240");
  EXPECT_LT(Difference(out, photo), 0.03);
}

TEST_F(Render, TakesEveryTypeByItsContent) {
  MakeJpeg(folder / "a", 900, 600);
  MakePng(folder / "a.txt", 900, 600);
  MakeHeic(folder / "a.heic", 900, 600, false);
  MakeGif(folder / "a.gif", 900, 600, 3);
  MakeTiff(folder / "a.jpg", 900, 600);
  MakeBmp(folder / "a.bmp", 900, 600);
  for (const char* name : {"a", "a.txt", "a.heic", "a.gif", "a.jpg", "a.bmp"}) {
    EXPECT_EQ(Errors({folder / name, out}), "") << name;
    EXPECT_EQ(SizeOf(out), "JPEG 360x240") << name;
    EXPECT_EQ(Identify(out).frames, 1) << name;
  }
}

TEST_F(Render, WritesToStandardOutput) {
  MakeJpeg(photo, 900, 600);
  EXPECT_EQ(Errors({photo, out}), "");
  for (const char* name : {"-", "/dev/stdout"}) {
    const Outcome outcome = run({"render", photo, name});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, ReadFile(out)) << name;
  }
}

TEST_F(Render, NamesTheFileInAPng) {
  MakeJpeg(photo, 900, 600);
  SetTimes(photo, 5, 1700000001);
  const std::string png = folder / "out.png";
  EXPECT_EQ(Errors({"--uri", "file:///other/a%20b.jpg", photo, png}), "");
  const std::vector<std::pair<std::string, std::string>> texts = {{"Thumb::URI", "file:///other/a%20b.jpg"},
                                                                  {"Thumb::MTime", "1700000001"},
                                                                  {"Thumb::Size", std::to_string(fs::file_size(photo))},
                                                                  {"Thumb::Mimetype", "image/jpeg"},
                                                                  {"Thumb::Image::Width", "900"},
                                                                  {"Thumb::Image::Height", "600"},
                                                                  {"Software", "tavithumb"}};
  for (const auto& [keyword, text] : texts) {
    EXPECT_EQ(RunTool({"/usr/bin/identify", "-format", "%[" + keyword + "]", png}), text) << keyword;
  }
  EXPECT_EQ(SizeOf(png), "PNG 360x240");
  EXPECT_EQ(Errors({"--uri", "/other/a b.jpg", photo, png}), "");
  EXPECT_EQ(RunTool({"/usr/bin/identify", "-format", "%[Thumb::URI]", png}), "file:///other/a%20b.jpg");
  EXPECT_EQ(Errors({photo, png}), "");
  EXPECT_EQ(ReadFile(png).find("tEXt"), std::string::npos) << "no metadata unless it is asked for";
}

TEST_F(Render, SaysInOneLineWhyThereIsNoPicture) {
  MakeJpeg(photo, 900, 600);
  WriteFile(folder / "text.jpg", "no photo");
  WriteFile(folder / "new\nline", std::string(1000, 'x'));
  WriteFile(folder / "empty", "");
  MakePng(folder / "damaged.png", 900, 600);
  fs::resize_file(folder / "damaged.png", 60);
  WriteFile(out, "old");
  const std::string damaged = ": it is damaged; get a fresh copy of it\n";
  const std::string unknown = ": its content is not in a known image format; check that it opens in another program\n";
  const struct {
    std::string file;
    std::string written;
    std::string error;
  } rows[] = {
      {folder / "none.jpg", out, folder / "none.jpg" + ": it does not exist; check its name\n"},
      {folder.Path(), out, folder.Path() + ": it is a folder; name the files in it\n"},
      {"/dev/null", out, "/dev/null: it is not a regular file; name a photo or video file\n"},
      {"", out, ": it does not exist; check its name\n"},
      {folder / "text.jpg", out, folder / "text.jpg" + damaged},
      {folder / "empty", out, folder / "empty" + damaged},
      {folder / "new\nline", out, folder / "new\\nline" + unknown},
      {folder / "damaged.png", out, folder / "damaged.png" + damaged},
      {photo, photo, photo + ": it is the source itself; name another file to write\n"},
      {photo, "/dev/full", "/dev/full: the disk is full; free some space on it\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Errors({"--format", "jpeg", row.file, row.written}), "tavithumb: " + row.error);
    EXPECT_EQ(ReadFile(out), "old");
  }
  const Outcome full = run({"render", photo, "-"}, [] {
    Start start;
    start.output = "/dev/full";
    return start;
  }());
  EXPECT_EQ(full.code, 1);
  EXPECT_EQ(full.err, "tavithumb: standard output: No space left on device\n");
}

TEST_F(Render, SaysWhereItCannotWrite) {
  MakeJpeg(photo, 900, 600);
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  chmod(folder.Path().c_str(), 0755);
  EXPECT_EQ(Errors({photo, out}, As(kNobody)),
            "tavithumb: " + out + ": it cannot be written: Permission denied; write to a folder of your own\n");
  EXPECT_EQ(Errors({photo, folder / "none/out.jpg"}, As(kNobody)),
            "tavithumb: " + (folder / "none/out.jpg") + ": its folder does not exist; create the folder first\n");
  WriteFile(out, "old");
  chmod(out.c_str(), 0666);
  EXPECT_EQ(Errors({photo, out}, As(kNobody)), "") << "no more than the file is needed";
  EXPECT_EQ(SizeOf(out), "JPEG 360x240");
  EXPECT_EQ(Names(folder.Path()), (Arguments{"out.jpg", "photo.jpg"}));
}

TEST_F(Render, IsLedToNoOtherFileAsRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  constexpr uid_t kUser = 12345;
  chmod(folder.Path().c_str(), 0755);
  MakeJpeg(photo, 900, 600);
  WriteFile(folder / "secret.jpg", "secret");
  chmod((folder / "secret.jpg").c_str(), 0600);
  const std::string theirs = folder / "theirs";
  fs::create_directory(theirs);
  fs::create_symlink(folder / "secret.jpg", theirs + "/out.jpg");
  fs::create_symlink(folder / "secret.jpg", theirs + "/in.jpg");
  for (const std::string& path : {theirs, theirs + "/out.jpg", theirs + "/in.jpg"}) {
    ASSERT_EQ(lchown(path.c_str(), kUser, kUser), 0);
  }
  EXPECT_NE(Errors({photo, theirs + "/out.jpg"}), "");
  EXPECT_EQ(ReadFile(folder / "secret.jpg"), "secret");
  EXPECT_NE(Errors({theirs + "/in.jpg", out}), "");
  EXPECT_FALSE(Exists(out));
  EXPECT_EQ(Errors({photo, theirs + "/new.jpg"}), "");
  struct stat record = {};
  ASSERT_EQ(stat((theirs + "/new.jpg").c_str(), &record), 0);
  EXPECT_EQ(record.st_uid, kUser);
}

}  // namespace
}  // namespace tavithumb::test
