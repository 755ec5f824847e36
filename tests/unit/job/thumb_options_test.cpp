// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/stat.h>

#include <type_traits>

#include "job_fixture.h"

namespace tavithumb::test {
namespace {

class ThumbOptions : public JobTest {};

// The flags that the option word sets, in one line.
std::string Flags(OpenThumb& job) {
  std::string flags;
  if (job.noOnline_) flags += "noOnline ";
  if (job.tryAlbumexEA_) flags += "albumex ";
  if (job.tryBrovixEA_) flags += "brovix ";
  if (job.avatar_) flags += "avatar ";
  if (job.optEnableGIF_) flags += "optGIF ";
  if (job.noOriginalFallback_) flags += "noOriginal ";
  if (job.fallbackSmaller_) flags += "smaller ";
  if (job.info_.GetEnableGIF()) flags += "gif ";
  if (job.info_.GetCropMode()) flags += "crop ";
  return flags;
}

TEST_F(ThumbOptions, AreDecodedBitByBit) {
  struct Row {
    int options;
    const char* image;
    const char* video;
  };
  const Row rows[] = {
      {0x00, "noOriginal ", "noOnline noOriginal "},
      {0x01, "albumex noOriginal ", "noOnline albumex noOriginal "},
      {0x02, "brovix noOriginal ", "noOnline brovix noOriginal "},
      {0x04, "noOnline noOriginal ", "noOnline noOriginal "},
      {0x08, "optGIF noOriginal gif ", "noOnline optGIF noOriginal gif "},
      {0x10, "noOriginal ", "noOnline noOriginal "},
      {0x20, "avatar noOriginal crop ", "noOnline avatar noOriginal crop "},
      {0x40, "noOriginal smaller ", "noOnline noOriginal "},
      {0x23, "avatar noOriginal crop ", "noOnline avatar noOriginal crop "},
      {0x0F, "noOnline albumex brovix optGIF noOriginal gif ", "noOnline albumex brovix optGIF noOriginal gif "},
      {0x7F, "noOnline avatar optGIF noOriginal smaller gif crop ", "noOnline avatar optGIF noOriginal gif crop "},
      {0x21, "avatar noOriginal crop ", "noOnline avatar noOriginal crop "},
      {0x22, "avatar noOriginal crop ", "noOnline avatar noOriginal crop "},
      {0x28, "avatar optGIF noOriginal gif crop ", "noOnline avatar optGIF noOriginal gif crop "},
      {0x50, "noOriginal smaller ", "noOnline noOriginal "},
      {0x7FFFFF80, "noOriginal ", "noOnline noOriginal "},
      {0x7FFFFF92, "brovix noOriginal ", "noOnline brovix noOriginal "},
      {-1, "noOnline avatar optGIF noOriginal smaller gif crop ", "noOnline avatar optGIF noOriginal gif crop "},
  };
  const std::string image = Source("a.jpg"), video = Source("a.mp4");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.options);
    OpenThumb imageJob(image, row.options, false), videoJob(video, row.options, false);
    EXPECT_EQ(Flags(imageJob), row.image);
    EXPECT_EQ(Flags(videoJob), row.video);
  }
}

TEST_F(ThumbOptions, AreReplacedNotAdded) {
  OpenThumb job(Source("a.jpg"), 0x0F, false);
  job.type_ = 3;
  job.outputFile_ = "/kept";
  job.needDelete_ = true;
  job.SetOption(0);
  EXPECT_EQ(Flags(job), "noOriginal ");
  EXPECT_EQ(job.type_, 3);
  EXPECT_EQ(job.GetOutputFile(), "/kept");
  EXPECT_TRUE(job.IsNeedDelete());
}

TEST_F(ThumbOptions, DependOnTheLastWordAlone) {
  for (const std::string& source : {Source("a.jpg"), Source("a.mp4")}) {
    OpenThumb reused(source, 0, false);
    for (int options = 0; options < 0x80; ++options) {
      SCOPED_TRACE(testing::Message() << source << " " << options);
      OpenThumb fresh(source, options, false);
      reused.SetOption(~options);
      reused.SetOption(options);
      EXPECT_EQ(Flags(reused), Flags(fresh));
    }
  }
}

TEST_F(ThumbOptions, HaveTheirNumbers) {
  EXPECT_EQ(Thumb::OPT_ALBUMEX_EA, 0x01);
  EXPECT_EQ(Thumb::OPT_BROVIX_EA, 0x02);
  EXPECT_EQ(Thumb::OPT_NO_CONVERT, 0x04);
  EXPECT_EQ(Thumb::OPT_ENABLE_GIF, 0x08);
  EXPECT_EQ(Thumb::OPT_AVATAR, 0x20);
  EXPECT_EQ(Thumb::OPT_FALLBACK_SMALLER, 0x40);
}

TEST_F(ThumbOptions, ANewJobHasNoAnswerAndAsksForTheOriginal) {
  const std::string source = Source("a.heic");
  OpenThumb job(source, 0, true);
  EXPECT_EQ(job.type_, 0);
  EXPECT_EQ(job.srcPath_, source);
  EXPECT_FALSE(job.isVideo_);
  EXPECT_TRUE(job.acceptHeic_);
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(job.GetOutputType(), "");
  EXPECT_FALSE(job.IsNeedDelete());
  EXPECT_EQ(job.info_.GetSize(), "original");
  EXPECT_EQ(job.info_.GetDimension(), (ThumbDimension{2147483647, 2147483647}));
  EXPECT_FALSE(job.info_.IsGood());
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(ThumbOptions, AJobCannotBeConstructedForASourceThatCannotBeStated) {
  try {
    Thumb job("/nowhere/a.jpg", 0, false);
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(error.Code(), 601);
    EXPECT_STREQ(error.what(), "(E601) Can't stat /nowhere/a.jpg");
  }
}

TEST_F(ThumbOptions, AVideoIsRecognisedByItsBaseNameAlone) {
  EXPECT_TRUE(OpenThumb(Source("clip.MP4"), 0, false).isVideo_);
  EXPECT_TRUE(OpenThumb(Source("mp4"), 0, false).isVideo_);
  EXPECT_FALSE(OpenThumb(Source("videos.mp4/readme"), 0, false).isVideo_);
}

TEST_F(ThumbOptions, ARotationIsStoredAsGiven) {
  OpenThumb job(Source("a.jpg"), 0, false);
  for (const int turns : {1, -7, 400, 0}) {
    job.Rotate(turns);
    EXPECT_EQ(job.info_.GetUserRotate(), turns);
  }
}

TEST_F(ThumbOptions, ADestroyedJobRemovesItsPreviewAndNothingElse) {
  WriteFile(folder / "preview", "");
  WriteFile(folder / "answer", "");
  const std::string source = Source("a.jpg");
  std::vector<std::string> removed;
  libc.unlink = [&](const char* path) {
    removed.emplace_back(path);
    return RealUnlink(path);
  };
  { OpenThumb job(source, 0, false); }
  EXPECT_EQ(removed, Listing{});
  {
    OpenThumb job(source, 0, false);
    job.Info().exifPreviewTmpPath_ = folder / "preview";
    job.outputFile_ = folder / "answer";
    job.needDelete_ = true;
  }
  EXPECT_EQ(removed, Listing{folder / "preview"});
  EXPECT_EQ(Names(folder.Path()), (Listing{"a.jpg", "answer"}));
  {
    OpenThumb job(source, 0, false);
    job.Info().exifPreviewTmpPath_ = folder / "gone";  // a failing unlink is ignored
  }
}

TEST_F(ThumbOptions, AJobCannotBeCopiedAndHasNoVirtualOperations) {
  EXPECT_FALSE(std::is_copy_constructible_v<Thumb>);
  EXPECT_FALSE(std::is_copy_assignable_v<Thumb>);
  EXPECT_FALSE(std::is_polymorphic_v<Thumb>);
}

TEST_F(ThumbOptions, HaveSixNamedSizesWithTheirBoxes) {
  const std::map<std::string, ThumbDimension> sizes = {
      {"small", {120, 120}},   {"medium", {360, 360}},   {"big", {640, 640}},
      {"large", {1280, 1280}}, {"xlarge", {1280, 1280}}, {"original", {2147483647, 2147483647}}};
  EXPECT_EQ(Thumb::strThumbSizeMap_, sizes);
  EXPECT_EQ(Thumb::size_vec, (Listing{"original", "xlarge", "large", "big", "medium", "small"}));
}

TEST_F(ThumbOptions, EachOutputTypeHasItsName) {
  OpenThumb job(Source("a.jpg"), 0, false);
  const std::pair<int, const char*> rows[] = {{0, ""},       {1, "Albumex"},  {2, "Brovix"}, {3, "BrovixVarTmp"},
                                              {4, "Cinevo"}, {5, "Original"}, {6, ""},       {-1, ""}};
  for (const auto& [type, name] : rows) {
    job.type_ = type;
    EXPECT_EQ(job.GetOutputType(), name) << type;
  }
}

}  // namespace
}  // namespace tavithumb::test
