// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "../records.h"
#include "exiv2_lock.h"
#include "fake_libc.h"
#include "info/preview_choice.h"
#include "pictures.h"
#include "raw_file.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Choice = std::optional<std::size_t>;

PreviewCandidate Jpeg(std::uint32_t width, std::uint32_t height) {
  return {"image/jpeg", width, height};
}
PreviewCandidate Tiff(std::uint32_t width, std::uint32_t height) {
  return {"image/tiff", width, height};
}

TEST(ChoosePreview, ChoosesTheLargestThatIsNotTooLargeOnBothSides) {
  struct Row {
    const char* what;
    std::vector<PreviewCandidate> previews;
    ThumbDimension box;
    Choice choice;
  };
  const Row rows[] = {
      {"none", {}, {640, 640}, {}},
      {"the larger of two", {Jpeg(160, 120), Jpeg(1616, 1080)}, {640, 640}, 1},
      {"the larger of two, listed first", {Jpeg(1616, 1080), Jpeg(160, 120)}, {640, 640}, 0},
      {"too small", {Jpeg(160, 120)}, {640, 640}, {}},
      {"too large on both sides", {Jpeg(6000, 4000)}, {120, 120}, {}},
      {"just twice the box", {Jpeg(1280, 1280)}, {640, 640}, 0},
      {"one more on one side", {Jpeg(1281, 1280)}, {640, 640}, 0},
      {"one more on both sides", {Jpeg(1281, 1281)}, {640, 640}, {}},
      {"a smaller one where the large is too large", {Jpeg(160, 120), Jpeg(6000, 4000)}, {120, 120}, 0},
      {"the first of equals", {Jpeg(800, 600), Jpeg(600, 800)}, {640, 640}, 0},
      {"exactly three quarters of the box", {Jpeg(300, 100)}, {200, 200}, 0},
      {"one pixel less than three quarters", {Jpeg(29999, 1)}, {200, 200}, {}},
      {"just twice the box's width, higher than twice its height", {Jpeg(800, 9000)}, {400, 100}, 0},
      {"just twice the box's height, wider than twice its width", {Jpeg(9000, 200)}, {400, 100}, 0},
      {"too large for a box that is not square", {Jpeg(801, 201)}, {400, 100}, {}},
      {"the best of what is left, which is too small", {Jpeg(20, 20), Jpeg(30, 30), Jpeg(900, 900)}, {120, 120}, {}},
      {"the largest of three", {Jpeg(300, 300), Jpeg(400, 300), Jpeg(350, 300)}, {300, 300}, 1},
      {"any for an unbounded box, whose pixels wrap to one", {Jpeg(1, 1)}, {2147483647, 2147483647}, 0},
      {"none without pixels for an unbounded box", {Jpeg(0, 0)}, {2147483647, 2147483647}, {}},
  };
  for (const Row& row : rows) EXPECT_EQ(ChoosePreview(row.previews, "image/jpeg", row.box), row.choice) << row.what;
}

TEST(ChoosePreview, NeverChoosesATiffPreviewOfACr2) {
  EXPECT_EQ(ChoosePreview({Tiff(800, 600)}, "image/x-canon-cr2", {640, 640}), Choice());
  EXPECT_EQ(ChoosePreview({Tiff(800, 600), Jpeg(700, 600)}, "image/x-canon-cr2", {640, 640}), Choice(1));
  EXPECT_EQ(ChoosePreview({Tiff(800, 600), Jpeg(700, 600)}, "image/x-nikon-nef", {640, 640}), Choice(0));
}

// A JPEG of 1000 x 800 pixels with a preview of 160 x 120, and the initial
// content of /tmp.
class Preview : public testing::Test {
 protected:
  Preview() {
    MakeJpeg(folder / "preview.jpg", 160, 120);
    MakeJpeg(source, 1000, 800);
    SetPreview(source, folder / "preview.jpg");
    SetTimes(source, 900, 1000);
    libc.time = [] { return time_t{1700000000}; };
    libc.rand = [] { return 1804289383; };
  }
  ~Preview() override {
    RealUnlink(extracted.c_str());
    RealUnlink(extractedTiff.c_str());
  }

  // On a volume with room for 100 bytes.
  void ExpectCutShort() {
    std::vector<std::string> removed;
    libc.unlink = [&](const char* path) {
      removed.emplace_back(path);
      return RealUnlink(path);
    };
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small = {100, limit.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    OpenInfo info(source, "small", {120, 120});
    setrlimit(RLIMIT_FSIZE, &small);
    info.ExtractImgInfo(true);
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
    EXPECT_EQ(removed, std::vector<std::string>{withoutExtension});
    EXPECT_TRUE(Exists(extracted));  // the name with the extension is not what is removed
    EXPECT_EQ(log.lines, (std::vector<LogLine>{{LOG_ERR,
                                                "thumb_info:237 (ExtractEXIFPreviewInfo) \"Write preview to file "
                                                "failed, " +
                                                    source + "\""}}));
    EXPECT_TRUE(info.IsGood());
    EXPECT_TRUE(Exiv2LockIsFree());
  }

  const TempDir folder;
  const std::string source = folder / "a.jpg";
  const std::string withoutExtension = "/tmp/thumb." + std::to_string(getpid()) + ".1700000000.1804289383";
  const std::string extracted = withoutExtension + ".jpg";
  const std::string extractedTiff = withoutExtension + ".tif";
  const std::vector<std::string> before = OwnTemporaryFiles();
  FakeLibc libc;
  CapturedLog log;
};

TEST_F(Preview, IsWrittenUnderItsNameWithTheSourcesTimes) {
  OpenInfo info(source, "small", {120, 120});
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), extracted);
  const OpenInfo written(extracted, "", {0, 0});  // before it is read, which may change its access time
  EXPECT_EQ(written.stat_.st_atime, 900);
  EXPECT_EQ(written.stat_.st_mtime, 1000);
  EXPECT_EQ(ReadFile(extracted), ReadFile(folder / "preview.jpg"));
  EXPECT_EQ(info.GetWidth(), 1000u);
  EXPECT_TRUE(info.IsGood());
  EXPECT_EQ(log.lines, std::vector<LogLine>{});
}

TEST_F(Preview, IsNotWrittenUnlessRequested) {
  OpenInfo info(source, "small", {120, 120});
  info.ExtractImgInfo(false);
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
  EXPECT_EQ(OwnTemporaryFiles(), before);
}

TEST_F(Preview, IsListedWithTheFactsAndNotWritten) {
  SetExif(source, {{"Exif.Image.Orientation", "6"}});
  OpenInfo info(source, "small", {120, 120});
  info.exifPreviewTmpPath_ = "/earlier";
  const std::vector<PreviewCandidate> previews = info.ExtractImgInfoAndPreviews();
  ASSERT_EQ(previews.size(), 1u);
  EXPECT_EQ(previews[0].mimeType, "image/jpeg");
  EXPECT_EQ(previews[0].width, 160u);
  EXPECT_EQ(previews[0].height, 120u);
  EXPECT_EQ(info.GetMimeType(), "image/jpeg");
  EXPECT_EQ(info.GetWidth(), 1000u);
  EXPECT_EQ(info.GetHeight(), 800u);
  EXPECT_EQ(info.GetRotate(), 1);
  EXPECT_TRUE(info.IsGood());
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "/earlier");
  EXPECT_EQ(OwnTemporaryFiles(), before);
  EXPECT_EQ(log.lines, std::vector<LogLine>{});
  EXPECT_TRUE(Exiv2LockIsFree());
}

TEST_F(Preview, IsListedInExiv2sOrderForThoseOfACameraRawFile) {
  MakeJpeg(folder / "full.jpg", 800, 600);
  SetPreview(folder / "full.jpg", folder / "preview.jpg");
  MakeRaf(folder / "a.raf", folder / "full.jpg");
  OpenInfo info(folder / "a.raf", "small", {120, 120});
  std::vector<std::uint32_t> widths;
  for (const PreviewCandidate& preview : info.ExtractImgInfoAndPreviews()) widths.push_back(preview.width);
  EXPECT_EQ(widths, (std::vector<std::uint32_t>{160, 800}));
}

TEST_F(Preview, IsNotListedWhereThereIsNone) {
  MakePng(folder / "a.png", 60, 40);
  MakeHeic(folder / "a.heic", 64, 64, true);
  WriteFile(folder / "clip.mp4", "no real video");
  for (const char* name : {"a.png", "a.heic", "clip.mp4"}) {
    OpenInfo info(folder / name, "small", {120, 120});
    EXPECT_TRUE(info.ExtractImgInfoAndPreviews().empty()) << name;
    EXPECT_EQ(info.IsGood(), name != std::string("clip.mp4")) << name;
  }
}

TEST_F(Preview, IsListedOrTheSameErrorsAreThrown) {
  WriteFile(folder / "empty.jpg", "");
  WriteFile(folder / "text.jpg", "This is a text that is longer than thirty-one bytes.\n");
  MakeJpeg(folder / "gone.jpg", 60, 40);
  const std::pair<const char*, int> rows[] = {{"empty.jpg", 601}, {"text.jpg", 602}, {"gone.jpg", 603}};
  for (const auto& [name, code] : rows) {
    OpenInfo info(folder / name, "small", {120, 120});
    if (code == 603) RealUnlink((folder / name).c_str());
    try {
      info.ExtractImgInfoAndPreviews();
      ADD_FAILURE() << name;
    } catch (const Error& error) {
      EXPECT_EQ(error.Code(), code) << name;
    }
    EXPECT_FALSE(info.IsGood()) << name;
    EXPECT_TRUE(Exiv2LockIsFree());
  }
  SetExif(source, {{"Exif.Image.Orientation", "odd"}});
  EXPECT_THROW(OpenInfo(source, "small", {120, 120}).ExtractImgInfoAndPreviews(), std::invalid_argument);
}

TEST_F(Preview, FitsTheRequestsForWhichItWouldBeWritten) {
  const std::pair<ThumbDimension, bool> rows[] = {
      {{120, 120}, true}, {{50, 50}, false}, {{640, 640}, false}, {{2147483647, 2147483647}, true}};
  for (const auto& [box, fits] : rows) {
    SCOPED_TRACE(testing::Message() << box);
    OpenInfo info(source, "big", box);
    EXPECT_EQ(info.HasFittingPreview(info.ExtractImgInfoAndPreviews()), fits);
    EXPECT_FALSE(info.HasFittingPreview({}));
    info.ExtractImgInfo(true);
    EXPECT_EQ(info.GetEXIFPreviewTmpPath(), fits ? extracted : "");
  }
  OpenInfo cr2(source, "small", {120, 120});
  EXPECT_TRUE(cr2.HasFittingPreview({Tiff(160, 120)}));
  cr2.mimeType_ = "image/x-canon-cr2";
  EXPECT_FALSE(cr2.HasFittingPreview({Tiff(160, 120)}));
}

TEST_F(Preview, IsForgottenWhenNoneFitsTheBox) {
  for (const ThumbDimension box : {ThumbDimension{640, 640}, ThumbDimension{50, 50}}) {
    SCOPED_TRACE(testing::Message() << box);
    OpenInfo info(source, "big", box);
    info.exifPreviewTmpPath_ = "/earlier";
    info.ExtractImgInfo(true);
    EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
    EXPECT_EQ(OwnTemporaryFiles(), before);
  }
}

TEST_F(Preview, OfAnyTypeFitsAnUnboundedBox) {
  OpenInfo info(source, "original", {2147483647, 2147483647});
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), extracted);
}

TEST_F(Preview, IsChosenAmongThoseOfACameraRawFile) {
  MakeJpeg(folder / "full.jpg", 800, 600);
  SetPreview(folder / "full.jpg", folder / "preview.jpg");
  MakeRaf(folder / "a.raf", folder / "full.jpg");
  const std::tuple<ThumbDimension, int, int> rows[] = {{{640, 640}, 800, 600}, {{120, 120}, 160, 120}};
  for (const auto& [box, width, height] : rows) {
    SCOPED_TRACE(testing::Message() << box);
    OpenInfo info(folder / "a.raf", "big", box);
    info.ExtractImgInfo(true);
    ASSERT_EQ(info.GetEXIFPreviewTmpPath(), extracted);
    const PictureFacts facts = Identify(extracted);
    EXPECT_EQ(facts.format, "JPEG");
    EXPECT_EQ(facts.width, width);
    EXPECT_EQ(facts.height, height);
  }
}

TEST_F(Preview, InTiffIsWrittenWithATiffsExtension) {
  WriteFile(folder / "a.nef", RawFile(false));
  OpenInfo info(folder / "a.nef", "small", {120, 120});
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetMimeType(), "image/x-nikon-nef");
  ASSERT_EQ(info.GetEXIFPreviewTmpPath(), extractedTiff);
  const PictureFacts facts = Identify(extractedTiff);
  EXPECT_EQ(facts.format, "TIFF");
  EXPECT_EQ(facts.width, 160);
  EXPECT_EQ(facts.height, 120);
}

TEST_F(Preview, InTiffIsIgnoredInACr2) {
  WriteFile(folder / "a.cr2", RawFile(true));
  OpenInfo info(folder / "a.cr2", "small", {120, 120});
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetMimeType(), "image/x-canon-cr2");
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
  EXPECT_EQ(OwnTemporaryFiles(), before);
}

TEST_F(Preview, IsExtractedUnderTheLock) {
  bool lockWasFree = true;
  libc.utime = [&](const char* path, const utimbuf* times) {  // the last step
    lockWasFree = Exiv2LockIsFree();
    return RealUtime(path, times);
  };
  OpenInfo info(source, "small", {120, 120});
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), extracted);
  EXPECT_FALSE(lockWasFree);
  EXPECT_TRUE(Exiv2LockIsFree());
}

TEST_F(Preview, IsUsedEvenWithoutTheSourcesTimes) {
  libc.utime = [](const char*, const utimbuf*) { return -1; };
  OpenInfo info(source, "small", {120, 120});
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), extracted);
  EXPECT_TRUE(Exists(extracted));
  EXPECT_EQ(log.lines, std::vector<LogLine>{});
}

TEST_F(Preview, StaysOnDiskWhenReadingFailsLater) {
  SetExif(source, {{"Exif.Image.Orientation", "odd"}});
  OpenInfo info(source, "small", {120, 120});
  EXPECT_THROW(info.ExtractImgInfo(true), std::invalid_argument);
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), extracted);
  EXPECT_TRUE(Exists(extracted));
}

TEST_F(Preview, ThatIsTruncatedIsLoggedAndThePathWithoutExtensionIsRemoved) {
  // More than the stream's buffer: the write fails.
  WriteFile(folder / "preview.jpg", ReadFile(folder / "preview.jpg") + std::string(20000, '\0'));
  SetPreview(source, folder / "preview.jpg");
  ExpectCutShort();
}

TEST_F(Preview, ThatIsTruncatedOnClosingItsFileIsNotUsedEither) {
  ASSERT_LT(ReadFile(folder / "preview.jpg").size(), 4096u);  // fits into the stream's buffer
  ExpectCutShort();
}

}  // namespace
}  // namespace tavithumb::test
