// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <stdexcept>

#include "../records.h"

namespace tavithumb::test {
namespace {

// A source of 4000 x 3000 pixels.
OpenInfo Record(const std::string& size, ThumbDimension box = {640, 480}, int rotate = 0, int userRotate = 0,
                const std::string& mimeType = "image/jpeg") {
  OpenInfo info = JpegRecord(4000, 3000, box, size);
  info.rotate_ = rotate;
  info.userRotate_ = userRotate;
  info.mimeType_ = mimeType;
  return info;
}

TEST(EANames, HaveALetterForEachReducedSize) {
  const std::pair<const char*, std::string> rows[] = {
      {"small", "S"}, {"medium", "M"}, {"big", "B"}, {"large", "XL"}, {"xlarge", "XL"}};
  for (const auto& [size, letter] : rows) {
    EXPECT_EQ(Record(size).GetAlbumexThumbEAName(), "TAVIPHOTO_THUMB_" + letter + ".jpg");
    EXPECT_EQ(Record(size).GetAlbumexOldThumbEAName(), "TAVIPHOTO:THUMB_" + letter + ".jpg");
    EXPECT_EQ(Record(size).GetBrovixThumbEAName(), "TAVIFILE_THUMB_" + letter + ".jpg");
  }
}

TEST(EANames, MatchTheWorkedExamples) {
  EXPECT_EQ(Record("small").GetAlbumexThumbEAName(), "TAVIPHOTO_THUMB_S.jpg");
  EXPECT_EQ(Record("large", {1280, 1280}, 0, 0, "image/png").GetAlbumexThumbEAName(), "TAVIPHOTO_THUMB_XL.png");
  EXPECT_EQ(Record("xlarge").GetAlbumexOldThumbEAName(), "TAVIPHOTO:THUMB_XL.jpg");
  EXPECT_EQ(Record("medium", {360, 360}, 1, 1).GetBrovixThumbEAName(), "TAVIFILE_THUMB_M_r2.jpg");
  EXPECT_EQ(Record("big", {640, 640}, 3, 1).GetBrovixThumbEAName(), "TAVIFILE_THUMB_B.jpg");
  EXPECT_EQ(Record("__CUSTOM_SIZE__", {300, 200}).GetBrovixThumbEAName(), "TAVIFILE_THUMB_300x200.jpg");
  OpenInfo gif = Record("big", {640, 640}, 1, 0, "image/gif");
  gif.enableGIF_ = true;
  EXPECT_EQ(gif.GetBrovixTmpThumbEAName(), "TAVIFILETMP_THUMB_r1.gif");
  EXPECT_EQ(Record("big", {640, 480}, 1).GetAvatarThumbEAName(), "TAVIAVATAR_480x640_r1.jpg");
  EXPECT_EQ(OpenInfo("/", "small", {120, 120}).GetAvatarThumbEAName(), "TAVIAVATAR_120x120.jpg");
}

TEST(EANames, HaveASuffixForTheRotationModuloFullTurns) {
  struct Row {
    int rotate, userRotate;
    const char* suffix;
  };
  const Row rows[] = {{0, 0, ""},
                      {0, 1, "_r1"},
                      {2, 0, "_r2"},
                      {3, 0, "_r3"},
                      {3, 1, ""},
                      {3, 2, "_r1"},
                      {0, -1, "_r-1"},
                      {0, -3, "_r-3"},
                      {1, -2, "_r-1"},
                      {0, -4, ""},
                      {0, -6, "_r-2"},
                      {0, 2147483647, "_r3"},
                      {1, 2147483647, ""},
                      {2, 2147483647, "_r-3"},
                      {0, -2147483647 - 1, ""},
                      {3, -2147483647 - 1, "_r-1"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.rotate << " and " << row.userRotate);
    const OpenInfo info = Record("small", {120, 120}, row.rotate, row.userRotate);
    EXPECT_EQ(info.GetRotateSuffix(), row.suffix);
    EXPECT_EQ(info.GetBrovixThumbEAName(), std::string("TAVIFILE_THUMB_S") + row.suffix + ".jpg");
    EXPECT_EQ(info.GetBrovixTmpThumbEAName(), std::string("TAVIFILETMP_THUMB") + row.suffix + ".jpg");
    EXPECT_EQ(info.GetAvatarThumbEAName(), std::string("TAVIAVATAR_120x120") + row.suffix + ".jpg");
    EXPECT_EQ(info.GetAlbumexThumbEAName(),
              "TAVIPHOTO_THUMB_S.jpg");  // always auto-oriented
  }
}

TEST(EANames, FollowTheOutputTypeNotTheSource) {
  EXPECT_EQ(Record("small", {120, 120}, 0, 0, "image/x-ms-bmp").GetBrovixThumbEAName(), "TAVIFILE_THUMB_S.jpg");
  EXPECT_EQ(Record("small", {120, 120}, 0, 0, "image/png").GetBrovixTmpThumbEAName(), "TAVIFILETMP_THUMB.png");
  EXPECT_EQ(Record("small", {120, 120}, 0, 0, "image/gif").GetAvatarThumbEAName(), "TAVIAVATAR_120x120.jpg");
}

TEST(EANames, WriteTheTargetUnsigned) {
  EXPECT_EQ(Record("small", {4294967295u, 7}).GetXString(), "4000x7");
  EXPECT_EQ(OpenInfo("/", "small", {4294967295u, 7}).GetXString(), "4294967295x7");
}

TEST(EANames, HaveOneForAVideosScreenshot) {
  EXPECT_EQ(Record("original", {1, 1}, 3, 2, "image/png").GetCinevoThumbEAName(), "TAVIVIDEO_VIDEO_SCREENSHOT.jpg");
  EXPECT_EQ(OpenInfo("/", "", {0, 0}).GetCinevoThumbEAName(), "TAVIVIDEO_VIDEO_SCREENSHOT.jpg");
}

TEST(EANames, ThrowForASizeWithoutALetter) {
  for (const char* size : {"original", "huge", "", "__CUSTOM_SIZE__"}) {
    SCOPED_TRACE(size);
    const OpenInfo info = Record(size);
    const auto expectOutOfRange = [](const auto& name) {
      try {
        name();
        ADD_FAILURE();
      } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "map::at");
      }
    };
    expectOutOfRange([&] { return info.GetAlbumexThumbEAName(); });
    expectOutOfRange([&] { return info.GetAlbumexOldThumbEAName(); });
    if (info.GetSize() != "__CUSTOM_SIZE__") expectOutOfRange([&] { return info.GetBrovixThumbEAName(); });
  }
}

}  // namespace
}  // namespace tavithumb::test
