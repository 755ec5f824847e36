// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <pictures.h>
#include <temp_dir.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tavithumb/error.h"
#include "tavithumb/thumb_info.h"

namespace tavithumb {

void PrintTo(ColourSpace space, std::ostream* stream) {
  *stream << (space == ColourSpace::SRGB ? "sRGB" : space == ColourSpace::ADOBE_RGB ? "AdobeRGB" : "unknown");
}

namespace {

using Exif = std::vector<std::pair<std::string, std::string>>;
using Bytes = std::vector<std::uint8_t>;

class Details : public testing::Test {
 protected:
  PictureDetails Read(const std::string& name = "a.jpg") const {
    ThumbInfo info(folder / name, "small", {120, 120});
    return info.ExtractImgInfoAndDetails();
  }

  // Of a JPEG with these values.
  PictureDetails With(const Exif& exif, int width = 900, int height = 600) const {
    test::MakeJpeg(source, width, height);
    test::MakeJpeg(folder / "preview.jpg", 150, 100);
    test::SetPreview(source, folder / "preview.jpg");
    test::SetExif(source, exif);
    return Read();
  }

  Bytes Preview() const {
    const std::string bytes = test::ReadFile(folder / "preview.jpg");
    return {bytes.begin(), bytes.end()};
  }

  const test::TempDir folder;
  const std::string source = folder / "a.jpg";
};

TEST_F(Details, AreReadTogetherWithTheFacts) {
  With({{"Exif.Image.Make", "Acme"},
        {"Exif.Image.Model", "C1"},
        {"Exif.Image.Orientation", "6"},
        {"Exif.Photo.ColorSpace", "1"},
        {"Exif.Photo.DateTimeOriginal", "2024:05:01 12:30:00"}});
  ThumbInfo info(source, "small", {120, 120});
  const PictureDetails details = info.ExtractImgInfoAndDetails();
  EXPECT_EQ(info.GetWidth(), 900u);
  EXPECT_EQ(info.GetHeight(), 600u);
  EXPECT_EQ(info.GetRotate(), 1);
  EXPECT_EQ(info.GetMimeType(), "image/jpeg");
  ASSERT_EQ(details.previews.size(), 1u);
  EXPECT_EQ(details.previews[0].mimeType, "image/jpeg");
  EXPECT_EQ(details.previews[0].width, 150u);
  EXPECT_EQ(details.previews[0].height, 100u);
  EXPECT_EQ(details.jpegPreviews, std::vector<Bytes>{Preview()});
  EXPECT_EQ(details.colourSpace, ColourSpace::SRGB);
  EXPECT_EQ(details.cameraMake, "Acme");
  EXPECT_EQ(details.cameraModel, "C1");
  EXPECT_EQ(details.timeTaken, "2024-05-01T12:30:00");
}

TEST_F(Details, CanBeReadLaterThanTheFacts) {
  With({{"Exif.Image.Make", "Acme"}, {"Exif.Image.Orientation", "6"}});
  auto info = std::make_unique<ThumbInfo>(source, "small", ThumbDimension{120, 120});
  const std::function<PictureDetails()> read = info->ExtractImgInfoForDetails();
  EXPECT_TRUE(info->IsGood());
  EXPECT_EQ(info->GetWidth(), 900u);
  EXPECT_EQ(info->GetRotate(), 1);
  info.reset();
  for (int i = 0; i < 2; ++i) {
    const PictureDetails details = read();
    EXPECT_EQ(details.cameraMake, "Acme");
    EXPECT_EQ(details.jpegPreviews, std::vector<Bytes>{Preview()});
  }
}

// Unlike a JPEG's, the previews of camera raw are not part of the Exif data, which is in memory.
TEST_F(Details, ReadLaterFailLikeTheFactsIfTheSourceIsGone) {
  With({});
  test::MakeRaf(folder / "a.raf", source);
  ThumbInfo info(folder / "a.raf", "small", {120, 120});
  const std::function<PictureDetails()> read = info.ExtractImgInfoForDetails();
  std::filesystem::remove(folder / "a.raf");
  try {
    read();
    ADD_FAILURE() << "no error";
  } catch (const Error& error) {
    EXPECT_EQ(error.Code(), 603);
  }
}

TEST_F(Details, AreEmptyWhereNothingIsKnown) {
  test::MakePng(folder / "a.png", 60, 40);
  test::MakeHeic(folder / "a.heic", 64, 64, true);
  test::WriteFile(folder / "clip.mp4", "no real video");
  for (const char* name : {"a.png", "a.heic", "clip.mp4"}) {
    SCOPED_TRACE(name);
    const PictureDetails details = Read(name);
    EXPECT_TRUE(details.previews.empty());
    EXPECT_TRUE(details.jpegPreviews.empty());
    EXPECT_EQ(details.colourSpace, ColourSpace::UNKNOWN);
    EXPECT_EQ(details.cameraMake + details.cameraModel + details.timeTaken, "");
  }
}

TEST_F(Details, NameTheColourSpace) {
  const std::pair<Exif, ColourSpace> rows[] = {
      {{}, ColourSpace::UNKNOWN},
      {{{"Exif.Photo.ColorSpace", "1"}}, ColourSpace::SRGB},
      {{{"Exif.Photo.ColorSpace", "2"}}, ColourSpace::ADOBE_RGB},
      {{{"Exif.Photo.ColorSpace", "3"}}, ColourSpace::UNKNOWN},
      {{{"Exif.Photo.ColorSpace", "65535"}}, ColourSpace::UNKNOWN},
      {{{"Exif.Photo.ColorSpace", "65535"}, {"Exif.Iop.InteroperabilityIndex", "R98"}}, ColourSpace::UNKNOWN},
      {{{"Exif.Photo.ColorSpace", "65535"}, {"Exif.Iop.InteroperabilityIndex", "R03"}}, ColourSpace::ADOBE_RGB},
      {{{"Exif.Photo.ColorSpace", "1"}, {"Exif.Iop.InteroperabilityIndex", "R03"}}, ColourSpace::SRGB},
      {{{"Exif.Iop.InteroperabilityIndex", "R03"}}, ColourSpace::UNKNOWN},
  };
  for (const auto& row : rows) EXPECT_EQ(With(row.first).colourSpace, row.second) << "row " << &row - rows;
}

TEST_F(Details, HaveTheTimeOnlyIfTheCameraKnewIt) {
  const std::pair<std::string, std::string> rows[] = {
      {"2024:05:01 12:30:00", "2024-05-01T12:30:00"},
      {"2024:05:01 12:30:00+02:00", "2024-05-01T12:30:00"},
      {"0000:00:00 00:00:00", ""},
      {"    :  :     :  :  ", ""},
      {"2024-05-01 12:30:00", ""},
      {"2024:05:01", ""},
      {"yesterday", ""},
  };
  for (const auto& [text, time] : rows) {
    EXPECT_EQ(With({{"Exif.Photo.DateTimeOriginal", text}}).timeTaken, time) << text;
  }
}

TEST_F(Details, HaveShortNamesWithoutPadding) {
  const std::string longName(100, 'x');
  const PictureDetails details = With({{"Exif.Image.Make", "Acme Cameras   "}, {"Exif.Image.Model", longName}});
  EXPECT_EQ(details.cameraMake, "Acme Cameras");
  EXPECT_EQ(details.cameraModel, std::string(64, 'x'));
  EXPECT_EQ(With({{"Exif.Image.Make", "   "}}).cameraMake, "");
}

// The preview has the photo's aspect; what it shows can't be seen here.
TEST_F(Details, LeaveOutPreviewsThatMayBeStoredAnotherWayUp) {
  struct Row {
    Exif exif;
    bool isSquare;
    bool hasPreview;
  };
  const char photo[] = "Exif.Image.Orientation";
  const char thumbnail[] = "Exif.Thumbnail.Orientation";
  const Row rows[] = {
      {{}, false, true},
      {{}, true, true},
      {{{photo, "1"}}, false, true},
      {{{photo, "2"}}, false, false},
      {{{photo, "3"}}, false, false},
      {{{photo, "4"}}, false, false},
      {{{photo, "5"}}, false, true},
      {{{photo, "6"}}, false, true},
      {{{photo, "8"}}, false, true},
      {{{photo, "6"}}, true, false},
      {{{photo, "3"}, {thumbnail, "3"}}, false, true},
      {{{photo, "6"}, {thumbnail, "6"}}, true, true},
      {{{photo, "6"}, {thumbnail, "1"}}, false, false},
      {{{photo, "1"}, {thumbnail, "6"}}, false, false},
      {{{thumbnail, "3"}}, false, false},
      {{{thumbnail, "1"}}, false, true},
  };
  for (const Row& row : rows) {
    const PictureDetails details = With(row.exif, 900, row.isSquare ? 890 : 600);
    EXPECT_EQ(details.jpegPreviews.size(), row.hasPreview ? 1u : 0u) << "row " << &row - rows;
    EXPECT_EQ(details.previews.size(), 1u) << "row " << &row - rows;
  }
}

TEST_F(Details, LeaveOutPreviewsOfAPictureThatHasBeenCroppedOrRotatedSince) {
  const char width[] = "Exif.Photo.PixelXDimension";
  const char height[] = "Exif.Photo.PixelYDimension";
  const std::pair<Exif, bool> rows[] = {{{{width, "900"}, {height, "600"}}, true},
                                        {{{width, "600"}, {height, "900"}}, false},
                                        {{{width, "900"}, {height, "601"}}, false},
                                        {{{width, "901"}}, false}};
  for (const auto& [exif, hasPreview] : rows) {
    EXPECT_EQ(With(exif).jpegPreviews.size(), hasPreview ? 1u : 0u) << exif.front().second;
  }
}

TEST_F(Details, HaveTheBytesOfPreviewsForJpegsOnly) {
  With({});
  test::MakeRaf(folder / "a.raf", source);
  const PictureDetails details = Read("a.raf");
  EXPECT_EQ(details.previews.size(), 2u);
  EXPECT_TRUE(details.jpegPreviews.empty());
}

}  // namespace
}  // namespace tavithumb
