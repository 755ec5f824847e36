// SPDX-License-Identifier: GPL-3.0-or-later
#include "pictures.h"

#include <gtest/gtest.h>

#include <exiv2/exiv2.hpp>

#include "temp_dir.h"

namespace tavithumb::test {
namespace {

void ExpectMade(const std::string& path, const std::string& format, int width, int height, int frames) {
  SCOPED_TRACE(path);
  const PictureFacts facts = Identify(path);
  EXPECT_EQ(facts.format, format);
  EXPECT_EQ(facts.width, width);
  EXPECT_EQ(facts.height, height);
  EXPECT_EQ(facts.frames, frames);
}

TEST(Pictures, HaveTheirTypeAndSizeAndShowTheSameScene) {
  const TempDir directory;
  MakeJpeg(directory / "a.jpg", 300, 200);
  MakePng(directory / "a.png", 150, 100);
  MakeBmp(directory / "a.bmp", 90, 60);
  MakeTiff(directory / "a.tif", 60, 90);
  MakeGif(directory / "a.gif", 100, 80, 3);
  MakeHeic(directory / "a.heic", 320, 200, true);
  MakeHeic(directory / "b.heic", 320, 200, false);
  ExpectMade(directory / "a.jpg", "JPEG", 300, 200, 1);
  ExpectMade(directory / "a.png", "PNG", 150, 100, 1);
  ExpectMade(directory / "a.bmp", "BMP3", 90, 60, 1);
  ExpectMade(directory / "a.tif", "TIFF", 60, 90, 1);
  ExpectMade(directory / "a.gif", "GIF", 100, 80, 3);
  ExpectMade(directory / "a.heic", "HEIC", 320, 200, 1);
  ExpectMade(directory / "b.heic", "HEIC", 320, 200, 1);
  for (const char* name : {"a.png", "a.bmp", "a.tif", "a.gif", "a.heic", "b.heic"}) {
    SCOPED_TRACE(name);
    EXPECT_LT(Difference(directory / "a.jpg", directory / name), 0.03);
  }
}

TEST(Pictures, DifferFromEachOfTheirRotationsAndMirrorings) {
  const TempDir directory;
  MakeJpeg(directory / "a.jpg", 300, 300);
  const std::vector<std::vector<std::string>> ways = {
      {"-rotate", "90"},          {"-rotate", "180"},          {"-rotate", "270"},         {"-flop"},
      {"-flop", "-rotate", "90"}, {"-flop", "-rotate", "180"}, {"-flop", "-rotate", "270"}};
  for (const std::vector<std::string>& way : ways) {
    SCOPED_TRACE(testing::PrintToString(way));
    std::vector<std::string> argv = {"/usr/bin/convert", directory / "a.jpg"};
    argv.insert(argv.end(), way.begin(), way.end());
    argv.push_back(directory / "turned.png");
    RunTool(argv);
    EXPECT_GT(Difference(directory / "a.jpg", directory / "turned.png"), 0.1);
  }
}

TEST(Pictures, HaveTheExifValuesAndThePreviewThatWereSet) {
  const TempDir directory;
  MakeJpeg(directory / "a.jpg", 400, 300);
  MakeJpeg(directory / "preview.jpg", 160, 120);
  SetPreview(directory / "a.jpg", directory / "preview.jpg");
  SetExif(directory / "a.jpg", {{"Exif.Image.Orientation", "6"}});
  auto image = Exiv2::ImageFactory::open(directory / "a.jpg");
  image->readMetadata();
  EXPECT_EQ(image->exifData()["Exif.Image.Orientation"].toString(), "6");
  const Exiv2::PreviewPropertiesList previews = Exiv2::PreviewManager(*image).getPreviewProperties();
  ASSERT_EQ(previews.size(), 1u);
  EXPECT_EQ(previews[0].width_, 160u);
  EXPECT_EQ(previews[0].height_, 120u);
}

TEST(Pictures, ARawContainerHasAPreviewForExiv2AndDcraw) {
  const TempDir directory;
  MakeJpeg(directory / "preview.jpg", 320, 200);
  MakeRaf(directory / "a.raf", directory / "preview.jpg");
  auto image = Exiv2::ImageFactory::open(directory / "a.raf");
  image->readMetadata();
  EXPECT_EQ(image->mimeType(), "image/x-fuji-raf");
  const Exiv2::PreviewPropertiesList previews = Exiv2::PreviewManager(*image).getPreviewProperties();
  ASSERT_EQ(previews.size(), 1u);
  EXPECT_EQ(previews[0].width_, 320u);
  EXPECT_EQ(previews[0].height_, 200u);
  WriteFile(directory / "dcraw.jpg", RunTool({"/usr/bin/dcraw", "-e", "-c", directory / "a.raf"}));
  ExpectMade(directory / "dcraw.jpg", "JPEG", 320, 200, 1);
  EXPECT_LT(Difference(directory / "preview.jpg", directory / "dcraw.jpg"), 0.01);
}

TEST(RunTool, ThrowsWhenTheProgramFailsOrIsMissing) {
  EXPECT_THROW(RunTool({"/bin/false"}), std::runtime_error);
  EXPECT_THROW(RunTool({"/nonexistent"}), std::runtime_error);
  EXPECT_EQ(RunTool({"/bin/echo", "a b"}), "a b\n");
}

}  // namespace
}  // namespace tavithumb::test
