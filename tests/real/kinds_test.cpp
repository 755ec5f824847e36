// SPDX-License-Identifier: GPL-3.0-or-later
// Every type of source at every size, with the real tools.
#include "real_support.h"

namespace tavithumb::test {
namespace {

struct KindRow {
  const char* size;
  std::string entry;  // in the EA directory; "" if the source itself is the answer
  std::string format;
  int width;
  int height;
};

class Kinds : public RealTest {
 protected:
  // Requests each row's size with an empty EA directory.
  void ExpectRows(const std::string& source, int options, const std::string& mimeType, const std::vector<KindRow>& rows,
                  int frames = 1) {
    for (const KindRow& row : rows) {
      SCOPED_TRACE(row.size);
      std::filesystem::remove_all(EAEntry(source, ""));
      const Answer answer = Ask(source, row.size, options);
      const bool original = row.entry.empty();
      ExpectAnswer(answer, original ? source : EAEntry(source, row.entry), original ? "Original" : "Brovix", mimeType);
      if (!original) {
        ExpectStoredFor(source, answer.path);
        EXPECT_EQ(EAEntries(source), std::vector<std::string>{row.entry});
      }
      ExpectPicture(answer.path, row.format, row.width, row.height, frames);
      ExpectScene(answer.path);
    }
  }

  static void ExpectNothing(const std::string& source, const std::string& size, int options) {
    SCOPED_TRACE(size);
    ExpectAnswer(Ask(source, size, options), "", "", "image/jpeg");
    EXPECT_EQ(EAEntries(source), std::vector<std::string>{});
  }
};

TEST_F(Kinds, APngBecomesAPngThatFitsTheBox) {
  MakePng(Source("a.png"), 1800, 1200);
  ExpectRows(Dated(Source("a.png")), kBrovix, "image/png",
             {{"small", "TAVIFILE_THUMB_S.png", "PNG", 120, 80},
              {"medium", "TAVIFILE_THUMB_M.png", "PNG", 360, 240},
              {"big", "TAVIFILE_THUMB_B.png", "PNG", 640, 427},
              {"large", "TAVIFILE_THUMB_XL.png", "PNG", 1280, 853},
              {"xlarge", "TAVIFILE_THUMB_XL.png", "PNG", 1280, 853},
              {"original", "", "PNG", 1800, 1200}});
}

TEST_F(Kinds, ABmpBecomesAJpegThatFitsTheBox) {
  MakeBmp(Source("a.bmp"), 1800, 1200);
  ExpectRows(Dated(Source("a.bmp")), kBrovix, "image/jpeg",
             {{"small", "TAVIFILE_THUMB_S.jpg", "JPEG", 120, 80},
              {"medium", "TAVIFILE_THUMB_M.jpg", "JPEG", 360, 240},
              {"big", "TAVIFILE_THUMB_B.jpg", "JPEG", 640, 427},
              {"large", "TAVIFILE_THUMB_XL.jpg", "JPEG", 1280, 853},
              {"xlarge", "TAVIFILE_THUMB_XL.jpg", "JPEG", 1280, 853},
              {"original", "", "BMP3", 1800, 1200}});
}

TEST_F(Kinds, ATiffBecomesAJpegAndIsNeverServedUnchanged) {
  MakeTiff(Source("a.tif"), 1800, 1200);
  ExpectRows(Dated(Source("a.tif")), kBrovix, "image/jpeg",
             {{"small", "TAVIFILE_THUMB_S.jpg", "JPEG", 120, 80},
              {"medium", "TAVIFILE_THUMB_M.jpg", "JPEG", 360, 240},
              {"big", "TAVIFILE_THUMB_B.jpg", "JPEG", 640, 427},
              {"large", "TAVIFILE_THUMB_XL.jpg", "JPEG", 1280, 853},
              {"xlarge", "TAVIFILE_THUMB_XL.jpg", "JPEG", 1280, 853}});
  std::filesystem::remove_all(EAEntry(Source("a.tif"), ""));
  ExpectNothing(Source("a.tif"), "original", kBrovix);
}

TEST_F(Kinds, AnUprightJpegBecomesBmpDataUnderAJpgName) {
  ExpectRows(Jpeg("a.jpg", 1800, 1200, 7000000), kBrovix, "image/jpeg",
             {{"small", "TAVIFILE_THUMB_S.jpg", "BMP3", 225, 150},
              {"medium", "TAVIFILE_THUMB_M.jpg", "BMP3", 450, 300},
              {"big", "TAVIFILE_THUMB_B.jpg", "BMP3", 900, 600},
              {"large", "TAVIFILE_THUMB_XL.jpg", "BMP3", 1800, 1200},
              {"xlarge", "TAVIFILE_THUMB_XL.jpg", "BMP3", 1800, 1200},
              {"original", "", "JPEG", 1800, 1200}});
}

TEST_F(Kinds, AnAnimationThatMayStayAnimatedKeepsItsFrames) {
  MakeGif(Source("a.gif"), 420, 280, 4);
  ExpectRows(Dated(Source("a.gif")), kBrovix | Thumb::OPT_ENABLE_GIF, "image/gif",
             {{"small", "TAVIFILE_THUMB_S.gif", "GIF", 120, 80},
              {"medium", "TAVIFILE_THUMB_M.gif", "GIF", 360, 240},
              {"big", "", "GIF", 420, 280},
              {"large", "", "GIF", 420, 280},
              {"xlarge", "", "GIF", 420, 280},
              {"original", "", "GIF", 420, 280}},
             4);
}

TEST_F(Kinds, AnAnimationIsReducedToItsFirstFrameAtEverySizeExceptTheOriginal) {
  MakeGif(Source("a.gif"), 420, 280, 4);
  Dated(Source("a.gif"));
  ExpectRows(Source("a.gif"), kBrovix, "image/jpeg",
             {{"small", "TAVIFILE_THUMB_S.jpg", "JPEG", 120, 80},
              {"medium", "TAVIFILE_THUMB_M.jpg", "JPEG", 360, 240},
              {"big", "TAVIFILE_THUMB_B.jpg", "JPEG", 420, 280},
              {"large", "TAVIFILE_THUMB_XL.jpg", "JPEG", 420, 280},
              {"xlarge", "TAVIFILE_THUMB_XL.jpg", "JPEG", 420, 280}});
  ExpectRows(Source("a.gif"), kBrovix, "image/jpeg", {{"original", "", "GIF", 420, 280}}, 4);
}

TEST_F(Kinds, AHeicPhotoWithAnExifBlockBecomesAJpegAndIsNeverServedUnchanged) {
  MakeHeic(Source("a.heic"), 900, 600, true);
  ExpectRows(Dated(Source("a.heic")), kBrovix, "image/jpeg",
             {{"small", "TAVIFILE_THUMB_S.jpg", "JPEG", 120, 80},
              {"medium", "TAVIFILE_THUMB_M.jpg", "JPEG", 360, 240},
              {"big", "TAVIFILE_THUMB_B.jpg", "JPEG", 640, 427},
              {"large", "TAVIFILE_THUMB_XL.jpg", "JPEG", 900, 600},
              {"xlarge", "TAVIFILE_THUMB_XL.jpg", "JPEG", 900, 600}});
  std::filesystem::remove_all(EAEntry(Source("a.heic"), ""));
  ExpectNothing(Source("a.heic"), "original", kBrovix);
}

TEST_F(Kinds, AHeicPhotoIsServedUnchangedToACallerThatShowsHeif) {
  MakeHeic(Source("a.heic"), 300, 200, true);
  for (const char* size : {"small", "medium", "big", "large", "xlarge"}) {
    SCOPED_TRACE(size);
    ExpectAnswer(Ask(Source("a.heic"), size, kBrovix, 0, true), Source("a.heic"), "", "image/jpeg");
  }
  ExpectAnswer(Ask(Source("a.heic"), "original", kBrovix, 0, true), "", "", "image/jpeg");
  EXPECT_FALSE(Exists(EAEntry(Source("a.heic"), "")));
}

TEST_F(Kinds, AHeicPhotosStoredThumbnailIsServedEvenToACallerThatShowsHeif) {
  MakeHeic(Source("a.heic"), 300, 200, true);
  Dated(Source("a.heic"));
  const Answer made = Ask(Source("a.heic"), "small", kBrovix);
  ExpectAnswer(Ask(Source("a.heic"), "small", kBrovix, 0, true), made.path, "Brovix", "image/jpeg");
}

TEST_F(Kinds, AHeicPhotoWithoutMetadataGetsNothing) {
  MakeHeic(Source("a.heic"), 300, 200, false);
  for (const std::string& size : Thumb::size_vec) {
    ExpectNothing(Source("a.heic"), size, kBrovix);
    ExpectAnswer(Ask(Source("a.heic"), size, kBrovix, 0, true), "", "", "image/jpeg");
  }
}

// A preview that is too large is decoded through dcraw and becomes BMP data; one that fits is scaled in one step and
// written directly to its final path; one that is too small is still extracted by dcraw.
TEST_F(Kinds, ARawFilesThumbnailIsMadeFromItsPreview) {
  MakeJpeg(directory_ / "preview.jpg", 900, 600);
  MakeRaf(Source("a.raf"), directory_ / "preview.jpg");
  const std::string source = Dated(Source("a.raf"));
  ExpectRows(source, kBrovix, "image/jpeg",
             {{"small", "TAVIFILE_THUMB_S.jpg", "BMP3", 225, 150},
              {"large", "TAVIFILE_THUMB_XL.jpg", "BMP3", 900, 600},
              {"xlarge", "TAVIFILE_THUMB_XL.jpg", "BMP3", 900, 600}});
  const std::vector<KindRow> fitting = {{"medium", "TAVIFILE_THUMB_M.jpg", "JPEG", 360, 240},
                                        {"big", "TAVIFILE_THUMB_B.jpg", "JPEG", 640, 427}};
  for (const KindRow& row : fitting) {
    SCOPED_TRACE(row.size);
    std::filesystem::remove_all(EAEntry(source, ""));
    ExpectAnswer(Ask(source, row.size), EAEntry(source, row.entry), "Brovix", "image/jpeg");
    ExpectPicture(EAEntry(source, row.entry), row.format, row.width, row.height);
    ExpectScene(EAEntry(source, row.entry));
    EXPECT_EQ(EAEntries(source), std::vector<std::string>{row.entry});
  }
  std::filesystem::remove_all(EAEntry(source, ""));
  ExpectNothing(source, "original", kBrovix);
}

TEST_F(Kinds, AThumbnailConvertedFromAPreviewKeepsTheModeAndTimeItWasWrittenWith) {
  MakeJpeg(directory_ / "preview.jpg", 450, 300);
  MakeRaf(Source("a.raf"), directory_ / "preview.jpg");
  const mode_t mask = umask(022);
  const Answer answer = Ask(Dated(Source("a.raf")), "medium");
  umask(mask);
  const struct stat record = StatOf(answer.path);
  EXPECT_EQ(record.st_mode, mode_t{S_IFREG | 0644});
  EXPECT_EQ(record.st_uid, geteuid());
  EXPECT_GT(record.st_mtime, kSourceTime);
}

TEST_F(Kinds, ARawFileWithAnOrientationIsAutoOrientedWithEitherPreview) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    const std::string preview = OrientedJpeg("preview.jpg", orientation, 0);  // 1200x800 or 800x1200
    const std::string source = Source("a" + std::to_string(orientation) + ".raf");
    MakeRaf(source, preview);
    Dated(source);
    ExpectScene(Ask(source, "small").path);  // from dcraw
    ExpectScene(Ask(source, "big").path);    // from the preview
  }
}

TEST_F(Kinds, AJpegsFittingPreviewIsStoredUnchanged) {
  const std::string source = Source("a.jpg");
  MakeJpeg(source, 1800, 1200);
  MakeJpeg(directory_ / "preview.jpg", 180, 120);
  SetPreview(source, directory_ / "preview.jpg");
  Dated(source);
  ExpectRows(source, kBrovix, "image/jpeg", {{"small", "TAVIFILE_THUMB_S.jpg", "JPEG", 180, 120}});
  EXPECT_EQ(ReadFile(EAEntry(source, "TAVIFILE_THUMB_S.jpg")), ReadFile(directory_ / "preview.jpg"));
}

TEST_F(Kinds, AJpegsTooSmallPreviewIsNotUsed) {
  const std::string source = Source("a.jpg");
  MakeJpeg(source, 1800, 1200);
  MakeJpeg(directory_ / "preview.jpg", 180, 120);
  SetPreview(source, directory_ / "preview.jpg");
  std::filesystem::resize_file(source, 7000000);
  ExpectRows(Dated(source), kBrovix, "image/jpeg", {{"medium", "TAVIFILE_THUMB_M.jpg", "BMP3", 450, 300}});
}

TEST_F(Kinds, AJpegsPreviewIsNotUsedForTheOriginalAndIsRemovedWithTheJob) {
  const std::string source = Source("a.jpg");
  MakeJpeg(source, 900, 600);
  MakeJpeg(directory_ / "preview.jpg", 180, 120);
  SetPreview(source, directory_ / "preview.jpg");
  {
    Thumb job(source, kBrovix, false);
    EXPECT_EQ(job.CalcOutputFile("original"), source);
    EXPECT_EQ(OwnTemporaryFiles().size(), 1u);
  }
  EXPECT_EQ(OwnTemporaryFiles(), std::vector<std::string>{});
}

TEST_F(Kinds, AVideosScreenshotIsServedAtEverySizeExceptTheOriginal) {
  const std::string source = Source("movie.mp4");
  WriteFile(source, "no video at all");
  Dated(source);
  const std::string screenshot = EAEntry(source, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg");
  for (const std::string& size : Thumb::size_vec) ExpectNothing(source, size, kBrovix);
  std::filesystem::create_directories(EAEntry(source, ""));
  MakeJpeg(screenshot, 300, 200);
  for (const char* size : {"small", "medium", "big", "large", "xlarge"}) {
    SCOPED_TRACE(size);
    ExpectAnswer(Ask(source, size), screenshot, "Cinevo", "image/jpeg");
  }
  ExpectAnswer(Ask(source, "original"), "", "", "image/jpeg");
  SetTimes(screenshot, kSourceTime - 1, kSourceTime - 1);
  ExpectAnswer(Ask(source, "small"), "", "", "image/jpeg");
}

TEST_F(Kinds, AVideosBrovixThumbnailIsPreferredToItsScreenshot) {
  const std::string source = Source("movie.mkv");
  WriteFile(source, "no video at all");
  Dated(source);
  WriteFile(EAEntry(source, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"), "screenshot");
  WriteFile(EAEntry(source, "TAVIFILE_THUMB_M.jpg"), "thumbnail");
  ExpectAnswer(Ask(source, "medium"), EAEntry(source, "TAVIFILE_THUMB_M.jpg"), "Brovix", "image/jpeg");
  ExpectAnswer(Ask(source, "medium", 0), EAEntry(source, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"), "Cinevo", "image/jpeg");
}

TEST_F(Kinds, AlbumexThumbnailsAreFoundByTheNewNameAndThenTheOldOne) {
  const std::string source = Source("a.png");
  MakePng(source, 900, 600);
  Dated(source);
  const int options = Thumb::OPT_ALBUMEX_EA | Thumb::OPT_BROVIX_EA;
  const std::string older = EAEntry(source, "TAVIPHOTO:THUMB_M.png");
  const std::string newer = EAEntry(source, "TAVIPHOTO_THUMB_M.png");
  WriteFile(older, "older");
  ExpectAnswer(Ask(source, "medium", options), older, "Albumex", "image/png");
  WriteFile(newer, "newer");
  ExpectAnswer(Ask(source, "medium", options), newer, "Albumex", "image/png");
  ExpectAnswer(Ask(source, "medium", kBrovix), EAEntry(source, "TAVIFILE_THUMB_M.png"), "Brovix", "image/png");
  ExpectAnswer(Ask(source, "medium", options), newer, "Albumex", "image/png");
  // An avatar is only looked up under its own name.
  ExpectAnswer(Ask(source, "medium", options | Thumb::OPT_AVATAR), EAEntry(source, "TAVIAVATAR_360x360.png"), "Brovix",
               "image/png");
}

TEST_F(Kinds, WebAcceptableSourcesThatFitTheBoxAreServedUnchanged) {
  MakePng(Source("a.png"), 120, 80);
  MakeBmp(Source("a.bmp"), 120, 80);
  MakeJpeg(Source("a.jpg"), 120, 80);
  for (const char* name : {"a.png", "a.bmp", "a.jpg"}) {
    SCOPED_TRACE(name);
    const Answer answer = Ask(Source(name), "small");
    EXPECT_EQ(answer.path, Source(name));
    EXPECT_EQ(answer.type, "Original");
    EXPECT_FALSE(Exists(EAEntry(Source(name), "")));
  }
}

TEST_F(Kinds, LargeDependsOnThePixelCountAndXlargeOnTheBox) {
  MakePng(Source("wide.png"), 2000, 800);
  Dated(Source("wide.png"));
  ExpectAnswer(Ask(Source("wide.png"), "large"), Source("wide.png"), "Original", "image/png");
  ExpectAnswer(Ask(Source("wide.png"), "xlarge"), EAEntry(Source("wide.png"), "TAVIFILE_THUMB_XL.png"), "Brovix",
               "image/png");
  // A thumbnail stored for one of them also serves the other.
  ExpectAnswer(Ask(Source("wide.png"), "large"), EAEntry(Source("wide.png"), "TAVIFILE_THUMB_XL.png"), "Brovix",
               "image/png");
}

// 450 x 300 pixels are 405,054 bytes of BMP.
TEST_F(Kinds, AJpegIsServedUnchangedUpToTheBytesOfItsBmpAndDecodedFromOneByteMore) {
  const std::string source = Jpeg("a.jpg", 1800, 1200, 450 * 300 * 3 + 54);
  ExpectAnswer(Ask(source, "medium"), source, "Original", "image/jpeg");
  std::filesystem::resize_file(source, 450 * 300 * 3 + 55);
  Dated(source);
  ExpectAnswer(Ask(source, "medium"), EAEntry(source, "TAVIFILE_THUMB_M.jpg"), "Brovix", "image/jpeg");
}

TEST_F(Kinds, ADecodedJpegIsTheCallersToDeleteWhenItIsHardlySmallerThanItsSource) {
  const std::uintmax_t bmpAndHalfAMiB = 450 * 300 * 3 + 54 + 524288;
  const std::string source = Jpeg("a.jpg", 1800, 1200, bmpAndHalfAMiB - 1);
  Thumb small(source, kBrovix, false);
  small.CalcOutputFile("medium");
  EXPECT_TRUE(small.IsNeedDelete());
  EXPECT_EQ(small.GetOutputType(), "Brovix");
  std::filesystem::remove_all(EAEntry(source, ""));
  std::filesystem::resize_file(source, bmpAndHalfAMiB);
  Thumb large(source, kBrovix, false);
  large.CalcOutputFile("medium");
  EXPECT_FALSE(large.IsNeedDelete());
}

TEST_F(Kinds, UnknownSizesGetNothing) {
  MakePng(Source("a.png"), 300, 200);
  for (const char* size : {"", "SMALL", "huge", "__CUSTOM_SIZE__"})
    ExpectAnswer(Ask(Source("a.png"), size), "", "", "image/jpeg");
  EXPECT_FALSE(Exists(EAEntry(Source("a.png"), "")));
}

TEST_F(Kinds, WithoutConversionOnlyExistingFilesAreServed) {
  MakePng(Source("a.png"), 300, 200);
  const int options = Thumb::OPT_BROVIX_EA | Thumb::OPT_NO_CONVERT;
  ExpectAnswer(Ask(Source("a.png"), "small", options), "", "", "image/png");
  ExpectAnswer(Ask(Source("a.png"), "original", options), Source("a.png"), "Original", "image/png");
  const Answer made = Ask(Source("a.png"), "small");
  ExpectAnswer(Ask(Source("a.png"), "small", options), made.path, "Brovix", "image/png");
}

TEST_F(Kinds, SmallerSizesAnswerWhenTheOptionIsSet) {
  MakePng(Source("a.png"), 900, 600);
  Dated(Source("a.png"));
  const Answer small = Ask(Source("a.png"), "small");
  const int options = Thumb::OPT_BROVIX_EA | Thumb::OPT_NO_CONVERT | Thumb::OPT_FALLBACK_SMALLER;
  ExpectAnswer(Ask(Source("a.png"), "big", options), small.path, "Brovix", "image/png");
  ExpectAnswer(Ask(Source("a.png"), "big", Thumb::OPT_BROVIX_EA | Thumb::OPT_NO_CONVERT), "", "", "image/png");
}

TEST_F(Kinds, AnOriginalThatBrowsersCannotShowFallsBackToTheNextSizeWhenTheOptionIsSet) {
  MakeTiff(Source("a.tif"), 900, 600);
  Dated(Source("a.tif"));
  ExpectAnswer(Ask(Source("a.tif"), "original", Thumb::OPT_BROVIX_EA | Thumb::OPT_FALLBACK_SMALLER),
               EAEntry(Source("a.tif"), "TAVIFILE_THUMB_XL.jpg"), "Brovix", "image/jpeg");
}

}  // namespace
}  // namespace tavithumb::test
