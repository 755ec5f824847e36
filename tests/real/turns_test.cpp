// SPDX-License-Identifier: GPL-3.0-or-later
// Orientations, rotations requested by the user, mirroring, boxes in pixels and avatars, with the real tools.
#include "real_support.h"

namespace tavithumb::test {
namespace {

std::string Suffix(int sum) {
  return sum % 4 == 0 ? "" : "_r" + std::to_string(sum % 4);
}

class Turns : public RealTest {
 protected:
  std::string Png(const std::string& name, int width, int height) const {
    MakePng(Source(name), width, height);
    return Dated(Source(name));
  }

  // Crops a picture out of the middle of another.
  std::string Middle(const std::string& source, int width, int height) const {
    const std::string path = directory_ / "middle.png";
    RunTool({"/usr/bin/convert", source + "[0]", "-gravity", "center", "-crop",
             std::to_string(width) + "x" + std::to_string(height) + "+0+0", "+repage", path});
    return path;
  }
};

struct Orientation {
  int value;
  int rotate;
  bool flop;
};

const Orientation kOrientations[] = {{1, 0, false}, {2, 0, true},  {3, 2, false}, {4, 2, true},
                                     {5, 1, true},  {6, 1, false}, {7, 3, true},  {8, 3, false}};

// Unrotated pixels stay BMP data as stored; a picture that is rotated or mirrored is a JPEG that fits the box.
TEST_F(Turns, AJpegWithAnyOrientationIsAutoOrientedAndThenRotatedAsRequested) {
  for (const Orientation& orientation : kOrientations) {
    const std::string source =
        OrientedJpeg("a" + std::to_string(orientation.value) + ".jpg", orientation.value, 3000000);
    for (int turns = 0; turns < 4; ++turns) {
      SCOPED_TRACE(testing::Message() << "orientation " << orientation.value << ", turns " << turns);
      const int sum = orientation.rotate + turns;
      const Answer answer = Ask(source, "big", kBrovix, turns);
      ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_B" + Suffix(sum) + ".jpg"), "Brovix", "image/jpeg");
      ExpectStoredFor(source, answer.path);
      const bool landscape = turns % 2 == 0;
      if (sum % 4 == 0 && !orientation.flop) {
        ExpectPicture(answer.path, "BMP3", landscape ? 1200 : 800, landscape ? 800 : 1200);
      } else {
        ExpectPicture(answer.path, "JPEG", landscape ? 640 : 427, landscape ? 427 : 640);
      }
      ExpectScene(answer.path, turns);
    }
  }
}

TEST_F(Turns, ATiffWithAnyOrientationIsAutoOriented) {
  for (const Orientation& orientation : kOrientations) {
    SCOPED_TRACE(orientation.value);
    const std::string jpeg = OrientedJpeg("stored.jpg", orientation.value, 0);
    const std::string source = Source("a" + std::to_string(orientation.value) + ".tif");
    RunTool({"/usr/bin/convert", jpeg, "-strip", source});
    SetExif(source, {{"Exif.Image.Orientation", std::to_string(orientation.value)}});
    const Answer answer = Ask(Dated(source), "small");
    ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S" + Suffix(orientation.rotate) + ".jpg"), "Brovix",
                 "image/jpeg");
    ExpectPicture(answer.path, "JPEG", 120, 80);
    ExpectScene(answer.path);
  }
}

TEST_F(Turns, OtherPicturesAreRotatedAsRequested) {
  MakePng(Source("a.png"), 600, 400);
  MakeBmp(Source("a.bmp"), 600, 400);
  MakeTiff(Source("a.tif"), 600, 400);
  MakeHeic(Source("a.heic"), 600, 400, true);
  MakeJpeg(directory_ / "preview.jpg", 240, 160);
  MakeRaf(Source("a.raf"), directory_ / "preview.jpg");
  for (const char* name : {"a.png", "a.bmp", "a.tif", "a.heic", "a.raf"}) {
    const std::string source = Dated(Source(name));
    for (int turns = 1; turns < 4; ++turns) {
      SCOPED_TRACE(testing::Message() << name << ", turns " << turns);
      const Answer answer = Ask(source, "small", kBrovix, turns);
      const bool png = source == Source("a.png");
      ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S" + Suffix(turns) + (png ? ".png" : ".jpg")), "Brovix",
                   png ? "image/png" : "image/jpeg");
      const bool landscape = turns == 2;
      ExpectPicture(answer.path, png ? "PNG" : "JPEG", landscape ? 120 : 80, landscape ? 80 : 120);
      ExpectScene(answer.path, turns);
    }
  }
}

TEST_F(Turns, AnAnimationIsRotatedWithAllItsFrames) {
  MakeGif(Source("a.gif"), 300, 200, 3);
  const std::string source = Dated(Source("a.gif"));
  const Answer answer = Ask(source, "small", kBrovix | Thumb::OPT_ENABLE_GIF, 1);
  ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S_r1.gif"), "Brovix", "image/gif");
  ExpectPicture(answer.path, "GIF", 80, 120, 3);
  ExpectScene(answer.path, 1);
}

TEST_F(Turns, AnyNumberOfQuarterTurnsIsNamedByItsRemainder) {
  const std::string source = Png("a.png", 600, 400);
  const struct {
    int turns;
    const char* entry;
    int shown;
  } rows[] = {{-1, "TAVIFILE_THUMB_S_r-1.png", 3},
              {-2, "TAVIFILE_THUMB_S_r-2.png", 2},
              {-4, "TAVIFILE_THUMB_S.png", 0},
              {5, "TAVIFILE_THUMB_S_r1.png", 1},
              {8, "TAVIFILE_THUMB_S.png", 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.turns);
    const Answer answer = Ask(source, "small", kBrovix, row.turns);
    ExpectAnswer(answer, EAEntry(source, row.entry), "Brovix", "image/png");
    ExpectScene(answer.path, row.shown);
  }
}

TEST_F(Turns, FourQuarterTurnsConvertWhatIsOtherwiseServedUnchanged) {
  const std::string source = Png("a.png", 90, 60);
  ExpectAnswer(Ask(source, "small", kBrovix, 0), source, "Original", "image/png");
  const Answer answer = Ask(source, "small", kBrovix, 4);
  ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S.png"), "Brovix", "image/png");
  ExpectPicture(answer.path, "PNG", 90, 60);
}

// Mirroring alone is no reason to convert, and neither is a rotation if the JPEG is small in bytes.
TEST_F(Turns, ASmallJpegIsServedUnchangedWhateverItsOrientation) {
  for (const Orientation& orientation : kOrientations) {
    SCOPED_TRACE(orientation.value);
    const std::string source = OrientedJpeg("a" + std::to_string(orientation.value) + ".jpg", orientation.value, 0);
    ExpectAnswer(Ask(source, "xlarge"), source, "Original", "image/jpeg");
  }
}

TEST_F(Turns, AMirroredJpegsPreviewIsStoredUnchanged) {
  const std::string source = OrientedJpeg("a.jpg", 2, 0);
  RunTool({"/usr/bin/convert", source, "-strip", "-resize", "180x120", directory_ / "preview.jpg"});
  SetPreview(source, directory_ / "preview.jpg");
  const Answer answer = Ask(Dated(source), "small");
  ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S.jpg"), "Brovix", "image/jpeg");
  EXPECT_EQ(ReadFile(answer.path), ReadFile(directory_ / "preview.jpg"));
  EXPECT_GT(Difference(answer.path, upright_), kOtherScene);
}

TEST_F(Turns, ARotatedJpegsPreviewIsRotatedToo) {
  const std::string source = OrientedJpeg("a.jpg", 6, 0);
  RunTool({"/usr/bin/convert", source, "-strip", "-resize", "120x180", directory_ / "preview.jpg"});
  SetPreview(source, directory_ / "preview.jpg");
  const Answer answer = Ask(Dated(source), "small");
  ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S_r1.jpg"), "Brovix", "image/jpeg");
  ExpectPicture(answer.path, "JPEG", 120, 80);
  ExpectScene(answer.path);
  // Rotated back by the user, it is served unchanged.
  const Answer back = Ask(source, "small", kBrovix, 3);
  ExpectAnswer(back, EAEntry(source, "TAVIFILE_THUMB_S.jpg"), "Brovix", "image/jpeg");
  EXPECT_EQ(ReadFile(back.path), ReadFile(directory_ / "preview.jpg"));
}

TEST_F(Turns, AnExplicitBoxIsNamedInTheStoredOrientation) {
  const std::string source = Png("a.png", 600, 400);
  Thumb job(source, kBrovix, false);
  job.CalcOutputFile("original");  // reads the facts
  EXPECT_EQ(job.Convert({ThumbDimension{300, 100}, ThumbDimension{90, 5000}, ThumbDimension{600, 400}}), 2);
  EXPECT_EQ(EAEntries(source), (std::vector<std::string>{"TAVIFILE_THUMB_300x100.png", "TAVIFILE_THUMB_90x400.png"}));
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_300x100.png"), "PNG", 150, 100);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_90x400.png"), "PNG", 90, 60);
  job.Rotate(1);
  EXPECT_EQ(job.Convert({ThumbDimension{300, 90}}), 1);
  EXPECT_EQ(job.GetOutputFile(), EAEntry(source, "TAVIFILE_THUMB_90x300_r1.png"));
  ExpectPicture(job.GetOutputFile(), "PNG", 60, 90);
  ExpectScene(job.GetOutputFile(), 1);
}

TEST_F(Turns, AnAvatarIsCroppedFromTheCentre) {
  const std::string source = Png("a.png", 600, 400);
  const Answer answer = Ask(source, "small", Thumb::OPT_AVATAR);
  ExpectAnswer(answer, EAEntry(source, "TAVIAVATAR_120x120.png"), "Brovix", "image/png");
  ExpectStoredFor(source, answer.path);
  ExpectPicture(answer.path, "PNG", 120, 120);
  EXPECT_LT(Difference(answer.path, Middle(source, 120, 120)), 0.01);
  EXPECT_EQ(EAEntries(source), std::vector<std::string>{"TAVIAVATAR_120x120.png"});

  const Answer turned = Ask(source, "small", Thumb::OPT_AVATAR, 1);
  ExpectAnswer(turned, EAEntry(source, "TAVIAVATAR_120x120_r1.png"), "Brovix", "image/png");
  RunTool({"/usr/bin/convert", Middle(source, 120, 120), "-rotate", "90", directory_ / "turned.png"});
  EXPECT_LT(Difference(turned.path, directory_ / "turned.png"), 0.01);
}

TEST_F(Turns, AnAvatarOfEveryOtherTypeIsAJpegCroppedFromTheCentre) {
  MakeBmp(Source("a.bmp"), 600, 400);
  MakeTiff(Source("a.tif"), 600, 400);
  MakeGif(Source("a.gif"), 600, 400, 2);
  MakeHeic(Source("a.heic"), 600, 400, true);
  for (const char* name : {"a.bmp", "a.tif", "a.gif", "a.heic"}) {
    SCOPED_TRACE(name);
    const std::string source = Dated(Source(name));
    const Answer answer = Ask(source, "medium", Thumb::OPT_AVATAR | Thumb::OPT_ENABLE_GIF);
    ExpectAnswer(answer, EAEntry(source, "TAVIAVATAR_360x360.jpg"), "Brovix", "image/jpeg");
    ExpectPicture(answer.path, "JPEG", 360, 360);
    EXPECT_LT(Difference(answer.path, Middle(source, 360, 360)), 0.03);
  }
}

TEST_F(Turns, AnAvatarOfAnUprightJpegIsScaledAndNotCropped) {
  const std::string source = Jpeg("a.jpg", 600, 400, 800000);
  const Answer answer = Ask(source, "small", Thumb::OPT_AVATAR);
  ExpectAnswer(answer, EAEntry(source, "TAVIAVATAR_120x120.jpg"), "Brovix", "image/jpeg");
  ExpectPicture(answer.path, "BMP3", 150, 100);
  ExpectScene(answer.path);
}

// The preview is stored under the avatar's name while the Brovix one is reported; the next request finds the avatar.
TEST_F(Turns, AnAvatarMadeFromAPreviewIsReportedUnderAnotherPath) {
  const std::string source = Source("a.jpg");
  MakeJpeg(source, 600, 400);
  MakeJpeg(directory_ / "preview.jpg", 180, 120);
  SetPreview(source, directory_ / "preview.jpg");
  Dated(source);
  ExpectAnswer(Ask(source, "small", Thumb::OPT_AVATAR), EAEntry(source, "TAVIFILE_THUMB_S.jpg"), "Brovix",
               "image/jpeg");
  EXPECT_EQ(EAEntries(source), std::vector<std::string>{"TAVIAVATAR_120x120.jpg"});
  ExpectAnswer(Ask(source, "small", Thumb::OPT_AVATAR), EAEntry(source, "TAVIAVATAR_120x120.jpg"), "Brovix",
               "image/jpeg");
  EXPECT_EQ(ReadFile(EAEntry(source, "TAVIAVATAR_120x120.jpg")), ReadFile(directory_ / "preview.jpg"));
}

TEST_F(Turns, AMakerNoteRotationAppliesToAPictureWhoseTagSaysNormal) {
  const std::string source = OrientedJpeg("a.jpg", 6, 0);
  SetExif(source,
          {{"Exif.Image.Orientation", "1"}, {"Exif.Image.Make", "Panasonic"}, {"Exif.Panasonic.Rotation", "6"}});
  std::filesystem::resize_file(source, 3000000);
  const Answer answer = Ask(Dated(source), "small");
  ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S_r1.jpg"), "Brovix", "image/jpeg");
  ExpectScene(answer.path);
}

}  // namespace
}  // namespace tavithumb::test
