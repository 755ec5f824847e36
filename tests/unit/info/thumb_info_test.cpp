// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "../records.h"
#include "fake_libc.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

TEST(ThumbInfo, StartsWithItsArgumentsAndTheSourcesStatRecord) {
  const TempDir folder;
  WriteFile(folder / "a.jpg", "12345");
  SetTimes(folder / "a.jpg", 900, 1000);
  const OpenInfo info(folder / "a.jpg", "small", {120, 130});
  EXPECT_EQ(info.path_, folder / "a.jpg");
  EXPECT_EQ(info.GetPath(), folder / "a.jpg");
  EXPECT_EQ(info.GetSize(), "small");
  EXPECT_EQ(info.GetDimension(), (ThumbDimension{120, 130}));
  EXPECT_EQ(info.GetMimeType(), "");
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
  EXPECT_EQ(info.GetWidth(), 0u);
  EXPECT_EQ(info.GetHeight(), 0u);
  EXPECT_EQ(info.GetRotate(), 0);
  EXPECT_EQ(info.GetUserRotate(), 0);
  EXPECT_FALSE(info.IsGood());
  EXPECT_FALSE(info.IsHeic());
  EXPECT_FALSE(info.GetFlop());
  EXPECT_FALSE(info.GetEnableGIF());
  EXPECT_FALSE(info.GetCropMode());
  EXPECT_EQ(info.GetFileSize(), 5u);
  EXPECT_EQ(info.stat_.st_atime, 900);
  EXPECT_EQ(info.stat_.st_mtime, 1000);
}

TEST(ThumbInfo, ThrowsWhenTheSourceCannotBeStated) {
  try {
    ThumbInfo("/nowhere/a.jpg", "small", {120, 120});
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(error.Code(), 601);
    EXPECT_STREQ(error.what(), "(E601) Can't stat /nowhere/a.jpg");
  }
}

TEST(ThumbInfo, IsAValueWhoseCopiesAreIndependent) {
  EXPECT_TRUE(std::is_copy_constructible_v<ThumbInfo>);
  EXPECT_TRUE(std::is_copy_assignable_v<ThumbInfo>);
  OpenInfo original = JpegRecord(10, 20, {1, 1});
  const OpenInfo copy = original;
  original.width_ = 99;
  original.mimeType_ = "image/png";
  EXPECT_EQ(copy.GetWidth(), 10u);
  EXPECT_EQ(copy.GetMimeType(), "image/jpeg");
}

TEST(ThumbInfo, ReturnsTheLow32BitsOfTheFileSize) {
  OpenInfo info = JpegRecord(1, 1, {1, 1});
  info.stat_.st_size = (off64_t{5} << 32) + 7;
  EXPECT_EQ(info.GetFileSize(), 7u);
}

// The same where long has 32 bits: other programs of the appliance have instances of these.
TEST(ThumbInfo, HasNumbersOfTheSameWidthOnEveryMachine) {
  EXPECT_EQ(sizeof(ThumbDimension), 8u);
  EXPECT_EQ(offsetof(ThumbDimension, width), 0u);
  EXPECT_EQ(offsetof(ThumbDimension, height), 4u);
  EXPECT_EQ(sizeof(OpenInfo::stat_.st_size), 8u);
  EXPECT_EQ(sizeof(OpenInfo::stat_.st_ino), 8u);
  EXPECT_TRUE((std::is_same_v<decltype(OpenInfo::width_), std::uint32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(OpenInfo::height_), std::uint32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(OpenInfo::rotate_), std::int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(OpenInfo::userRotate_), std::int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(ThumbInfo::LARGE_ORIG_THRESHOLD), const std::uint32_t>));
}

TEST(ThumbInfo, SupportsSourcesAndThumbnailsOfMoreThanTwoGiB) {
  constexpr off64_t size = (off64_t{5} << 30) + 7;
  const TempDir folder;
  WriteFile(folder / "a.nef", "");
  if (truncate64((folder / "a.nef").c_str(), size) != 0) GTEST_SKIP() << "needs sparse files of 5 GiB";
  const OpenInfo info(folder / "a.nef", "small", {120, 120});
  EXPECT_EQ(info.stat_.st_size, size);
  EXPECT_EQ(info.GetFileSize(), (1u << 30) + 7);
  EXPECT_TRUE(info.IsThumbUptoDate(folder / "a.nef"));
}

TEST(ThumbInfo, IsGoodWithFactsOfEitherLibrary) {
  OpenInfo info("/", "small", {120, 120});
  info.heic_ = true;
  EXPECT_TRUE(info.IsGood());
  EXPECT_TRUE(info.IsHeic());
  info.good_ = true;
  EXPECT_TRUE(info.IsGood());
  info.heic_ = false;
  EXPECT_TRUE(info.IsGood());
  EXPECT_FALSE(info.IsHeic());
}

// A record with a value of its own in each field, for a source of 5 bytes from the second 1000.
OpenInfo FilledRecord(const TempDir& folder) {
  WriteFile(folder / "a.jpg", "12345");
  SetTimes(folder / "a.jpg", 900, 1000);
  OpenInfo info(folder / "a.jpg", "small", {120, 130});
  info.exifPreviewTmpPath_ = "/tmp/preview";
  info.width_ = 800;
  info.height_ = 600;
  info.rotate_ = 1;
  info.userRotate_ = 2;
  info.flop_ = info.enableGIF_ = info.cropMode_ = true;
  return info;
}

void ExpectFilledBesidesType(const OpenInfo& info, const TempDir& folder) {
  EXPECT_EQ(info.GetPath(), folder / "a.jpg");
  EXPECT_EQ(info.GetSize(), "small");
  EXPECT_EQ(info.GetDimension(), (ThumbDimension{120, 130}));
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "/tmp/preview");
  EXPECT_EQ(info.GetWidth(), 800u);
  EXPECT_EQ(info.GetHeight(), 600u);
  EXPECT_EQ(info.GetRotate(), 1);
  EXPECT_EQ(info.GetUserRotate(), 2);
  EXPECT_TRUE(info.GetFlop());
  EXPECT_TRUE(info.GetEnableGIF());
  EXPECT_TRUE(info.GetCropMode());
  EXPECT_EQ(info.GetFileSize(), 5u);
  EXPECT_EQ(info.stat_.st_mtime, 1000);
}

TEST(ThumbInfo, TakesATypeOfTheCallersAndChangesNothingElse) {
  const TempDir folder;
  struct Row {
    const char* what;
    const char* before;
    bool good, heic;
  };
  const Row rows[] = {
      {"nothing was known", "", false, false},
      {"Exiv2 had read it", "image/tiff", true, false},
      {"libheif had read it", "", false, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    OpenInfo typed = FilledRecord(folder);
    typed.mimeType_ = row.before;
    typed.good_ = row.good;
    typed.heic_ = row.heic;
    OpenInfo heic = typed;
    typed.SetMimeType("image/png");
    EXPECT_EQ(typed.GetMimeType(), "image/png");
    EXPECT_TRUE(typed.IsGood());
    EXPECT_FALSE(typed.IsHeic());
    EXPECT_EQ(typed.GetOutputExtension(), ".png");
    EXPECT_TRUE(typed.IsWebAcceptable());
    ExpectFilledBesidesType(typed, folder);
    heic.SetHeic();
    EXPECT_EQ(heic.GetMimeType(), "");
    EXPECT_TRUE(heic.IsGood());
    EXPECT_TRUE(heic.IsHeic());
    EXPECT_FALSE(heic.good_) << "read by Exiv2";
    EXPECT_EQ(heic.GetOutputExtension(), ".jpg");
    EXPECT_FALSE(heic.IsWebAcceptable());
    ExpectFilledBesidesType(heic, folder);
  }
}

TEST(ThumbInfo, TakesAnyTypeOfTheCallersWithoutALookAtTheSource) {
  for (const char* type : {"image/heic", "image/avif", "image/jxl", ""}) {
    SCOPED_TRACE(type);
    ThumbInfo info("/", "small", {120, 120});
    info.SetMimeType(type);
    EXPECT_EQ(info.GetMimeType(), type);
    EXPECT_TRUE(info.IsGood());
    EXPECT_FALSE(info.IsHeic());
    EXPECT_EQ(info.GetWidth(), 0u);
    EXPECT_EQ(info.GetHeight(), 0u);
    EXPECT_EQ(info.GetRotate(), 0);
    EXPECT_FALSE(info.GetFlop());
  }
}

TEST(ThumbInfo, MakesGifsFromGifsThatMayStayAnimatedPngsFromPngsAndJpegsFromTheRest) {
  struct Row {
    const char* mimeType;
    bool enableGIF, crop;
    const char* output;
    const char* extension;
  };
  const Row rows[] = {
      {"image/gif", true, false, "image/gif", ".gif"},       {"image/gif", true, true, "image/jpeg", ".jpg"},
      {"image/gif", false, false, "image/jpeg", ".jpg"},     {"image/png", false, false, "image/png", ".png"},
      {"image/png", true, true, "image/png", ".png"},        {"image/jpeg", true, false, "image/jpeg", ".jpg"},
      {"image/x-ms-bmp", true, false, "image/jpeg", ".jpg"}, {"", true, false, "image/jpeg", ".jpg"},
      {"IMAGE/PNG", false, false, "image/jpeg", ".jpg"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.mimeType << " " << row.enableGIF << " " << row.crop);
    OpenInfo info = JpegRecord(1, 1, {1, 1});
    info.mimeType_ = row.mimeType;
    info.enableGIF_ = row.enableGIF;
    info.cropMode_ = row.crop;
    EXPECT_EQ(info.GetOutputMimeType(), row.output);
    EXPECT_EQ(info.GetOutputExtension(), row.extension);
  }
}

TEST(ThumbInfo, IsWebAcceptableByFourExactTypes) {
  OpenInfo info = JpegRecord(1, 1, {1, 1});
  for (const char* type : {"image/jpeg", "image/png", "image/gif", "image/x-ms-bmp"}) {
    info.mimeType_ = type;
    EXPECT_TRUE(info.IsWebAcceptable()) << type;
  }
  for (const char* type : {"", "image/bmp", "image/tiff", "image/heic", "image/webp", "Image/jpeg", "image/jpeg "}) {
    info.mimeType_ = type;
    EXPECT_FALSE(info.IsWebAcceptable()) << type;
  }
}

TEST(ThumbInfo, TargetsTheBoxInTheStoredOrientation) {
  struct Row {
    std::uint32_t width, height;
    int rotate, userRotate;
    ThumbDimension box, target;
  };
  const Row rows[] = {
      {4000, 3000, 0, 0, {640, 480}, {640, 480}},
      {4000, 3000, 1, 0, {640, 480}, {480, 640}},
      {4000, 3000, 0, 3, {640, 480}, {480, 640}},
      {4000, 3000, 1, 1, {640, 480}, {640, 480}},
      {4000, 3000, 3, -2, {640, 480}, {480, 640}},
      {300, 200, 0, 0, {640, 480}, {300, 200}},
      {300, 2000, 0, 0, {640, 480}, {300, 480}},
      {300, 200, 1, 0, {250, 640}, {300, 200}},
      {0, 0, 0, 0, {640, 480}, {640, 480}},
      {0, 0, 1, 0, {640, 480}, {480, 640}},
      {0, 3000, 0, 0, {640, 480}, {640, 480}},
      {4000, 0, 0, -1, {640, 480}, {480, 640}},
      {4000, 3000, 0, 0, {4294967295u, 1}, {4000, 1}},
      {4000, 3000, 3, 2147483647, {640, 480}, {640, 480}},  // the sum wraps around to an even number
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.width << "x" << row.height << " turned " << row.rotate << " and "
                                    << row.userRotate << " into " << row.box);
    OpenInfo info = JpegRecord(row.width, row.height, row.box);
    info.rotate_ = row.rotate;
    info.userRotate_ = row.userRotate;
    EXPECT_EQ(info.GetTargetDimension(), row.target);
  }
}

TEST(ThumbInfo, NeedsConversionByTheFirstRuleThatApplies) {
  struct Row {
    const char* what;
    const char* mimeType;
    bool enableGIF;
    int rotate, userRotate;
    const char* size;
    std::uint32_t width, height;
    bool needed;
  };
  const Row rows[] = {
      {"GIF that may not stay one", "image/gif", false, 0, 0, "big", 10, 10, true},
      {"GIF that may", "image/gif", true, 0, 0, "big", 10, 10, false},
      {"not shown by browsers", "image/tiff", true, 0, 0, "big", 10, 10, true},
      {"no facts", "", true, 0, 0, "big", 0, 0, true},
      {"rotated", "image/jpeg", false, 1, 0, "big", 10, 10, true},
      {"rotated by the user", "image/jpeg", false, 0, -1, "big", 10, 10, true},
      {"turned once around", "image/jpeg", false, 1, 3, "big", 10, 10, true},
      {"turned back", "image/jpeg", false, 1, -1, "big", 10, 10, false},
      {"fits exactly", "image/jpeg", false, 0, 0, "big", 640, 640, false},
      {"too wide", "image/jpeg", false, 0, 0, "big", 641, 10, true},
      {"too high", "image/jpeg", false, 0, 0, "big", 10, 641, true},
      {"large with 1280 x 1280", "image/jpeg", false, 0, 0, "large", 1280, 1280, true},
      {"large with one pixel less", "image/jpeg", false, 0, 0, "large", 1638399, 1, false},
      {"large, long but small", "image/jpeg", false, 0, 0, "large", 2000, 800, false},
      {"xlarge, long", "image/jpeg", false, 0, 0, "xlarge", 2000, 800, true},
      {"large and rotated", "image/jpeg", false, 0, 2, "large", 10, 10, true},
      {"large GIF that may not stay one", "image/gif", false, 0, 0, "large", 10, 10, true},
      {"large GIF that may", "image/gif", true, 0, 0, "large", 10, 10, false},
      {"GIF that may, too wide", "image/gif", true, 0, 0, "big", 641, 10, true},
      {"large whose product wraps", "image/jpeg", false, 0, 0, "large", 65536, 65536, false},
      {"huge BMP side", "image/x-ms-bmp", false, 0, 0, "original", 10, 4294967286u, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const std::uint32_t side = row.size == std::string("big")        ? 640
                               : row.size == std::string("original") ? 2147483647
                                                                     : 1280;
    OpenInfo info = JpegRecord(row.width, row.height, {side, side}, row.size);
    info.mimeType_ = row.mimeType;
    info.enableGIF_ = row.enableGIF;
    info.rotate_ = row.rotate;
    info.userRotate_ = row.userRotate;
    EXPECT_EQ(info.IsNeedConvert(), row.needed);
  }
}

TEST(ThumbInfo, NeedsConversionByWidthAndHeightEachAgainstItsOwnSideOfTheBox) {
  struct Row {
    const char* size;
    std::uint32_t width, height;
    ThumbDimension box;
    bool needed;
  };
  const Row rows[] = {
      {"__CUSTOM_SIZE__", 600, 400, {600, 400}, false},
      {"__CUSTOM_SIZE__", 601, 400, {600, 400}, true},
      {"__CUSTOM_SIZE__", 600, 401, {600, 400}, true},
      {"__CUSTOM_SIZE__", 400, 600, {600, 400}, true},
      {"__CUSTOM_SIZE__", 400, 600, {400, 600}, false},
      {"__CUSTOM_SIZE__", 600, 400, {400, 600}, true},
      {"large", 600, 400, {1, 1}, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.size << " " << row.width << "x" << row.height << " in " << row.box);
    EXPECT_EQ(JpegRecord(row.width, row.height, row.box, row.size).IsNeedConvert(), row.needed);
  }
}

// Access and modification time with their nanoseconds.
void SetPreciseTimes(const std::string& path, const timespec& access, const timespec& modification) {
  const timespec times[] = {access, modification};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(ThumbInfo, ComparesAndCopiesWholeSeconds) {
  const TempDir folder;
  WriteFile(folder / "a.jpg", "");
  WriteFile(folder / "thumb", "");
  SetPreciseTimes(folder / "a.jpg", {900, 700}, {1000, 999999999});
  SetPreciseTimes(folder / "thumb", {1, 0}, {1000, 1});
  const ThumbInfo info(folder / "a.jpg", "small", {120, 120});
  EXPECT_TRUE(info.IsThumbUptoDate(folder / "thumb"));
  EXPECT_EQ(info.UpdateAMTime(folder / "thumb"), 0);
  const OpenInfo thumb(folder / "thumb", "", {0, 0});
  EXPECT_EQ(thumb.stat_.st_atim.tv_sec, 900);
  EXPECT_EQ(thumb.stat_.st_atim.tv_nsec, 0);
  EXPECT_EQ(thumb.stat_.st_mtim.tv_sec, 1000);
  EXPECT_EQ(thumb.stat_.st_mtim.tv_nsec, 0);
}

TEST(ThumbInfo, IsOfTheFileBehindASymbolicLink) {
  const TempDir folder;
  WriteFile(folder / "a.jpg", "12345");
  ASSERT_EQ(symlink("a.jpg", (folder / "link.jpg").c_str()), 0);
  ASSERT_EQ(symlink("gone.jpg", (folder / "dangling.jpg").c_str()), 0);
  EXPECT_EQ(ThumbInfo(folder / "link.jpg", "small", {120, 120}).GetFileSize(), 5u);
  EXPECT_THROW(ThumbInfo(folder / "dangling.jpg", "small", {120, 120}), Error);
}

TEST(ThumbInfo, TreatsAThumbnailAsUpToDateFromTheSourcesSecondOn) {
  const TempDir folder;
  WriteFile(folder / "a.jpg", "");
  WriteFile(folder / "thumb", "");
  SetTimes(folder / "a.jpg", 1, 1000);
  const ThumbInfo info(folder / "a.jpg", "small", {120, 120});
  for (const auto& [time, upToDate] : {std::pair{999, false}, {1000, true}, {1001, true}, {-5, false}}) {
    SetTimes(folder / "thumb", 1, time);
    EXPECT_EQ(info.IsThumbUptoDate(folder / "thumb"), upToDate) << time;
  }
  EXPECT_FALSE(info.IsThumbUptoDate(folder / "missing"));
  EXPECT_FALSE(info.IsThumbUptoDate(""));
  SetTimes(folder / "a.jpg", 1, 5000);  // the time seen at construction counts
  SetTimes(folder / "thumb", 1, 1000);
  EXPECT_TRUE(info.IsThumbUptoDate(folder / "thumb"));
}

TEST(ThumbInfo, SetsTheSourcesTimesOnAFile) {
  const TempDir folder;
  WriteFile(folder / "a.jpg", "");
  WriteFile(folder / "target", "");
  SetTimes(folder / "a.jpg", 900, 1000);
  const ThumbInfo info(folder / "a.jpg", "small", {120, 120});
  SetTimes(folder / "a.jpg", 1900, 2000);  // the times seen at construction count
  CapturedLog log;
  EXPECT_EQ(info.UpdateAMTime(folder / "target"), 0);
  const OpenInfo target(folder / "target", "", {0, 0});
  EXPECT_EQ(target.stat_.st_atime, 900);
  EXPECT_EQ(target.stat_.st_mtime, 1000);
  EXPECT_EQ(info.UpdateAMTime(folder / "missing"), -1);
  EXPECT_FALSE(Exists(folder / "missing"));
  EXPECT_EQ(log.lines, std::vector<LogLine>{});
}

TEST(ThumbInfo, HasItsTables) {
  EXPECT_EQ(ThumbInfo::LARGE_ORIG_THRESHOLD, 1638400u);
  EXPECT_EQ(ThumbInfo::stdOrientationKey, "Exif.Image.Orientation");
  EXPECT_EQ(
      ThumbInfo::orientationKeyList_,
      (std::vector<std::string>{"Exif.Panasonic.Rotation", "Exif.MinoltaCs5D.Rotation", "Exif.MinoltaCs5D.Rotation2",
                                "Exif.MinoltaCs7D.Rotation", "Exif.Sony1MltCsA100.Rotation", "Exif.Sony1Cs.Rotation",
                                "Exif.Sony2Cs.Rotation", "Exif.Sony1Cs2.Rotation", "Exif.Sony2Cs2.Rotation",
                                "Exif.Sony1MltCsA100.Rotation"}));
  EXPECT_EQ(ThumbInfo::rotateFlopMappingList_,
            (std::vector<std::pair<std::int32_t, bool>>{
                {0, false}, {0, true}, {2, false}, {2, true}, {1, true}, {1, false}, {3, true}, {3, false}}));
}

}  // namespace
}  // namespace tavithumb::test
