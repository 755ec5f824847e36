// SPDX-License-Identifier: GPL-3.0-or-later
// Thumbnails made ahead of time, and existing ones stored.
#include <tavithumb/error.h>

#include "real_support.h"

namespace tavithumb::test {
namespace {

using Entries = std::vector<std::string>;

class Batches : public RealTest {
 protected:
  std::string Png(int width, int height) const {
    MakePng(Source("a.png"), width, height);
    return Dated(Source("a.png"));
  }

  std::string Thumbnail(const std::string& name) const {
    const std::string path = directory_ / name;
    MakePng(path, 60, 40);
    SetTimes(path, 7, 7);
    return path;
  }
};

TEST_F(Batches, AllReducedSizesAreMadeOnceTheFactsWereRead) {
  const std::string source = Png(1800, 1200);
  Thumb job(source, Thumb::OPT_BROVIX_EA, false);
  EXPECT_EQ(job.CalcOutputFile("original"), source);
  EXPECT_TRUE(job.ConvertAll());
  EXPECT_EQ(EAEntries(source),
            (Entries{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png", "TAVIFILE_THUMB_XL.png"}));
  for (const std::string& entry : EAEntries(source)) ExpectStoredFor(source, EAEntry(source, entry));
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_S.png"), "PNG", 120, 80);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_M.png"), "PNG", 360, 240);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_B.png"), "PNG", 640, 427);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_XL.png"), "PNG", 1280, 853);
  EXPECT_EQ(job.GetOutputFile(), EAEntry(source, "TAVIFILE_THUMB_XL.png"));
}

TEST_F(Batches, WithoutFactsNoThumbnailOfAPictureIsMade) {
  const std::string source = Png(1800, 1200);
  EXPECT_FALSE(Thumb(source, Thumb::OPT_BROVIX_EA, false).ConvertAll());
  EXPECT_EQ(EAEntries(source), Entries{});
}

// Nothing is known about the source, so dcraw's preview is used unchanged for every size.
TEST_F(Batches, WithoutFactsARawFilesPreviewIsStoredUnchanged) {
  MakeJpeg(directory_ / "preview.jpg", 900, 600);
  MakeRaf(Source("a.raf"), directory_ / "preview.jpg");
  const std::string source = Dated(Source("a.raf"));
  EXPECT_TRUE(Thumb(source, Thumb::OPT_BROVIX_EA, false).ConvertAll());
  EXPECT_EQ(EAEntries(source),
            (Entries{"TAVIFILE_THUMB_B.jpg", "TAVIFILE_THUMB_M.jpg", "TAVIFILE_THUMB_S.jpg", "TAVIFILE_THUMB_XL.jpg"}));
  for (const std::string& entry : EAEntries(source)) {
    ExpectStoredFor(source, EAEntry(source, entry));
    ExpectPicture(EAEntry(source, entry), "JPEG", 900, 600);
    ExpectScene(EAEntry(source, entry));
  }
}

TEST_F(Batches, AnUnknownSizeIsSkippedAndSoIsOneThatNeedsNoConversion) {
  const std::string source = Png(600, 400);
  Thumb job(source, Thumb::OPT_BROVIX_EA, false);
  job.CalcOutputFile("original");
  EXPECT_EQ(job.Convert({"small", "huge", "medium", "big"}), 2);
  EXPECT_EQ(EAEntries(source), (Entries{"TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png"}));
  EXPECT_EQ(job.Convert(std::initializer_list<std::string>{}), 0);
  EXPECT_EQ(job.Convert(std::initializer_list<ThumbDimension>{}), 0);
}

// The size "original" has no letter for the name of its thumbnail: the work file is left behind.
TEST_F(Batches, TheOriginalSizeIsNeverMade) {
  MakeTiff(Source("a.tif"), 60, 40);
  const std::string source = Dated(Source("a.tif"));
  Thumb job(source, 0, false);
  job.CalcOutputFile("original");
  EXPECT_EQ(job.Convert({"original"}), 0);
  EXPECT_EQ(EAEntries(source), Entries{"TAVIFILETMP_THUMB.jpg"});
}

TEST_F(Batches, AnimationsAreMadeInEverySize) {
  MakeGif(Source("a.gif"), 900, 600, 3);
  const std::string source = Dated(Source("a.gif"));
  Thumb job(source, Thumb::OPT_ENABLE_GIF, false);
  job.CalcOutputFile("original");
  EXPECT_EQ(job.Convert({"small", "medium", "big", "large", "xlarge"}), 3);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_S.gif"), "GIF", 120, 80, 3);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_M.gif"), "GIF", 360, 240, 3);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_B.gif"), "GIF", 640, 427, 3);
}

TEST_F(Batches, ExistingThumbnailsMoveToTheirEntries) {
  const std::string source = Png(600, 400);
  Thumb job(source, 0, false);
  EXPECT_TRUE(job.SaveExistingThumbsToEA({{"small", Thumbnail("s.png")}, {"big", Thumbnail("b.png")}}, 0, true));
  EXPECT_EQ(EAEntries(source), (Entries{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_S.png"}));
  for (const std::string& entry : EAEntries(source)) {
    ExpectStoredFor(source, EAEntry(source, entry));
    ExpectPicture(EAEntry(source, entry), "PNG", 60, 40);
  }
  EXPECT_FALSE(Exists(directory_ / "s.png"));
  EXPECT_FALSE(Exists(directory_ / "b.png"));
  // They answer the next request, whatever their real size.
  ExpectAnswer(Ask(source, "small"), EAEntry(source, "TAVIFILE_THUMB_S.png"), "Brovix", "image/png");
}

TEST_F(Batches, ExistingThumbnailsGetTheGivenTime) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string source = Png(600, 400);
  EXPECT_TRUE(Thumb(source, 0, false).SaveExistingThumbsToEA({{"small", Thumbnail("s.png")}}, kSourceTime + 5, false));
  EXPECT_EQ(ModificationTime(EAEntry(source, "TAVIFILE_THUMB_S.png")), kSourceTime + 5);
  // A source with time 0 provides none: the thumbnail keeps its own.
  SetTimes(source, 0, 0);
  EXPECT_TRUE(Thumb(source, 0, false).SaveExistingThumbsToEA({{"small", Thumbnail("s.png")}}, 0, false));
  EXPECT_EQ(ModificationTime(EAEntry(source, "TAVIFILE_THUMB_S.png")), 7);
}

TEST_F(Batches, ValidPairsAreStoredAmongInvalidOnes) {
  const std::string source = Png(600, 400);
  MakeJpeg(directory_ / "other.jpg", 60, 40);
  WriteFile(directory_ / "text.png", "This is no picture at all, only a text.");
  Thumb job(source, 0, false);
  EXPECT_FALSE(job.SaveExistingThumbsToEA({{"small", directory_ / "other.jpg"},
                                           {"medium", Thumbnail("m.png")},
                                           {"big", directory_ / "text.png"},
                                           {"large", directory_ / "missing.png"},
                                           {"xlarge", Thumbnail("xl.png")}},
                                          0, true));
  EXPECT_EQ(EAEntries(source), (Entries{"TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_XL.png"}));
  EXPECT_TRUE(Exists(directory_ / "other.jpg"));
  EXPECT_TRUE(Exists(directory_ / "text.png"));
}

TEST_F(Batches, WithoutTheCheckAnyFileIsStored) {
  const std::string source = Png(600, 400);
  WriteFile(directory_ / "text.png", "text");
  Thumb job(source, 0, false);
  EXPECT_FALSE(
      job.SaveExistingThumbsToEA({{"small", directory_ / "text.png"}, {"big", directory_ / "missing.png"}}, 0, false));
  EXPECT_EQ(EAEntries(source), Entries{"TAVIFILE_THUMB_S.png"});
  EXPECT_EQ(ReadFile(EAEntry(source, "TAVIFILE_THUMB_S.png")), "text");
}

TEST_F(Batches, ExistingAvatarsAreStoredUnderTheAvatarsName) {
  const std::string source = Png(600, 400);
  EXPECT_TRUE(Thumb(source, Thumb::OPT_AVATAR, false)
                  .SaveExistingThumbsToEA({{"small", Thumbnail("s.png")}, {"big", Thumbnail("b.png")}}, 0, true));
  EXPECT_EQ(EAEntries(source), (Entries{"TAVIAVATAR_120x120.png", "TAVIAVATAR_600x400.png"}));
}

TEST_F(Batches, ExistingThumbnailsOfAVideoAreJpegs) {
  const std::string source = Source("movie.mp4");
  WriteFile(source, "no video at all");
  Dated(source);
  MakeJpeg(directory_ / "s.jpg", 60, 40);
  EXPECT_TRUE(Thumb(source, 0, false).SaveExistingThumbsToEA({{"small", directory_ / "s.jpg"}}, 0, true));
  ExpectAnswer(Ask(source, "small"), EAEntry(source, "TAVIFILE_THUMB_S.jpg"), "Brovix", "image/jpeg");
}

TEST_F(Batches, AnEmptyListOnlyMakesTheDirectory) {
  const std::string source = Png(600, 400);
  EXPECT_TRUE(Thumb(source, 0, false).SaveExistingThumbsToEA({}, 0, true));
  EXPECT_TRUE(std::filesystem::is_directory(EAEntry(source, "")));
  EXPECT_EQ(EAEntries(source), Entries{});
}

TEST_F(Batches, AnUnknownSizeNameIsThrown) {
  const std::string source = Png(600, 400);
  Thumb job(source, 0, false);
  EXPECT_THROW(job.SaveExistingThumbsToEA({{"huge", Thumbnail("s.png")}}, 0, false), std::out_of_range);
  EXPECT_TRUE(Exists(directory_ / "s.png"));
}

TEST_F(Batches, ADamagedSourceIsThrown) {
  const std::string source = Source("a.jpg");
  WriteFile(source, "");
  try {
    Thumb(source, 0, false).SaveExistingThumbsToEA({{"small", Thumbnail("s.png")}}, 0, false);
    ADD_FAILURE() << "no error";
  } catch (const Error& error) {
    EXPECT_EQ(error.Code(), 601);
  }
  EXPECT_TRUE(Exists(directory_ / "s.png"));
}

}  // namespace
}  // namespace tavithumb::test
