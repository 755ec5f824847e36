// SPDX-License-Identifier: GPL-3.0-or-later
#include <cerrno>

#include "job_fixture.h"

namespace tavithumb::test {
namespace {

// A job for the "big" box whose preview has been extracted to
// <folder>/preview.jpg.
class PreviewOutput : public JobTest {
 protected:
  PreviewOutput() : source(Source("a.jpg")), preview(folder / "preview.jpg"), job(source, 0, false) {
    Prepare(&job);
    WriteFile(preview, "preview");
    libc.geteuid = [] { return uid_t{0}; };
    libc.getegid = [] { return gid_t{0}; };
    libc.chown = [this](const char* path, uid_t, gid_t) { return steps.push_back("chown " + std::string(path)), 0; };
    libc.utime = [this](const char* path, const utimbuf*) { return steps.push_back("utime " + std::string(path)), 0; };
    platform.run = [this](const std::string&, const std::vector<std::string>& argv) {
      if (convertResult == 0) WriteFile(argv.back(), "converted");
      return convertResult;
    };
  }
  void Prepare(OpenThumb* prepared) const {
    SetFacts(prepared, 4000, 3000);
    SetRequest(prepared, "big");
    prepared->Info().exifPreviewTmpPath_ = preview;
    prepared->outputFile_ = "/earlier";
    prepared->type_ = 3;
  }
  PlatformCall Convert(const std::string& rotate, const std::string& userRotate, const std::string& to) const {
    return {"TLIBCExecv", "/usr/bin/convert", "1",       "/usr/bin/convert",
            "-strip",     "-colorspace",      "sRGB",    preview + "[0]",
            "-thumbnail", "640x640",          "-rotate", rotate,
            "-rotate",    userRotate,         to};
  }

  const std::string source, preview;
  const std::string entry = Entry(source, "TAVIFILE_THUMB_B.jpg");
  int convertResult = 0;
  Listing steps;
  OpenThumb job;
};

TEST_F(PreviewOutput, MovesThePreviewOfAJpegThatNeedsNoRotation) {
  EXPECT_TRUE(job.SetOutFromEXIFPreview());
  EXPECT_EQ(job.GetOutputFile(), entry);
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(ReadFile(entry), "preview");
  EXPECT_FALSE(Exists(preview));
  EXPECT_EQ(steps, (Listing{"chown " + entry, "utime " + entry}));
  EXPECT_EQ(platform.calls, (Calls{EAPath(source, "TAVIFILE_THUMB_B.jpg"),
                                   {"TAVIEADirPath", "0", source, "4096"},
                                   {"TAVIEAMKDir", "1", folder / "ea/a.jpg"},
                                   EAPath(source, "TAVIFILE_THUMB_B.jpg")}));
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(PreviewOutput, ConvertsWhenTheSumOfTheRotationsIsNotZero) {
  struct Row {
    int rotate, userRotate;
    const char* eaName;  // null: moved
  };
  const Row rows[] = {{1, 3, nullptr},
                      {2, 2, nullptr},
                      {0, 4, nullptr},
                      {3, -3, nullptr},
                      {1, 2147483647, nullptr},
                      {1, 0, "TAVIFILE_THUMB_B_r1.jpg"},
                      {0, 2, "TAVIFILE_THUMB_B_r2.jpg"},
                      {0, -1, "TAVIFILE_THUMB_B_r-1.jpg"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.rotate << " and " << row.userRotate);
    Prepare(&job);
    WriteFile(preview, "preview");
    platform.calls.clear();
    job.Info().rotate_ = row.rotate;
    job.Info().userRotate_ = row.userRotate;
    EXPECT_TRUE(job.SetOutFromEXIFPreview());
    const std::string stored = row.eaName == nullptr ? entry : Entry(source, row.eaName);
    EXPECT_EQ(job.GetOutputFile(), stored);
    EXPECT_EQ(ReadFile(stored), row.eaName == nullptr ? "preview" : "converted");
    EXPECT_EQ(platform.Calls("TLIBCExecv"),
              row.eaName == nullptr
                  ? Calls{}
                  : (Calls{Convert(std::to_string(row.rotate * 90), std::to_string(row.userRotate * 90), stored)}));
    EXPECT_FALSE(Exists(preview));
  }
}

TEST_F(PreviewOutput, ConvertsThePreviewOfAnythingButAJpegDirectlyToTheEntry) {
  job.Info().mimeType_ = "image/x-nikon-nef";
  EXPECT_TRUE(job.SetOutFromEXIFPreview());
  EXPECT_EQ(platform.calls, (Calls{EAPath(source, "TAVIFILE_THUMB_B.jpg"),
                                   {"TAVIEADirPath", "0", source, "4096"},
                                   {"TAVIEAMKDir", "1", folder / "ea/a.jpg"},
                                   Convert("0", "0", entry)}));
  EXPECT_EQ(job.GetOutputFile(), entry);
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(steps, Listing{});  // neither owner nor time
  EXPECT_FALSE(Exists(preview));
}

TEST_F(PreviewOutput, ConvertsThePreviewOfAPng) {
  job.Info().mimeType_ = "image/png";
  EXPECT_TRUE(job.SetOutFromEXIFPreview());
  EXPECT_EQ(job.GetOutputFile(), Entry(source, "TAVIFILE_THUMB_B.png"));
  EXPECT_EQ(platform.Calls("TLIBCExecv"), (Calls{Convert("0", "0", Entry(source, "TAVIFILE_THUMB_B.png"))}));
}

TEST_F(PreviewOutput, DoesNotLookForAPreviewWithoutFacts) {
  job.Info().good_ = false;
  EXPECT_FALSE(job.SetOutFromEXIFPreview());
  EXPECT_EQ(platform.calls, Calls{});
  EXPECT_TRUE(Exists(preview));
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(job.type_, 3);
}

TEST_F(PreviewOutput, RemovesNothingWithoutAPreview) {
  job.Info().exifPreviewTmpPath_ = "";
  EXPECT_FALSE(job.SetOutFromEXIFPreview());
  EXPECT_EQ(platform.calls, Calls{EAPath(source, "TAVIFILE_THUMB_B.jpg")});
  EXPECT_TRUE(Exists(preview));
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(job.type_, 3);
}

TEST_F(PreviewOutput, RemovesThePreviewWithoutAnEADirectory) {
  platform.makeEADirResult = -1;
  EXPECT_FALSE(job.SetOutFromEXIFPreview());
  EXPECT_FALSE(Exists(preview));
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(job.type_, 3);
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(PreviewOutput, KeepsAPreviewThatCannotBeSaved) {
  libc.rename = [](const char*, const char*) { return errno = EIO, -1; };
  EXPECT_FALSE(job.SetOutFromEXIFPreview());
  EXPECT_TRUE(Exists(preview));
  EXPECT_EQ(job.type_, 3);
  EXPECT_EQ(
      log.lines,
      (Log{Logged(474, "SaveThumbToEA", "Failed to move thumbnail file from '" + preview + "' to '" + entry + "'"),
           Logged(352, "SetOutFromEXIFPreview", "failed to save to EA")}));
}

TEST_F(PreviewOutput, RemovesAPreviewThatCannotBeConverted) {
  convertResult = 1;
  job.Info().mimeType_ = "image/tiff";
  EXPECT_FALSE(job.SetOutFromEXIFPreview());
  EXPECT_FALSE(Exists(preview));
  EXPECT_EQ(job.type_, 3);
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(log.lines,
            (Log{Logged(347, "SetOutFromEXIFPreview",
                        "failed to rotate or convert tmp file to web accepatable img " + preview + " -> " + entry)}));
}

TEST_F(PreviewOutput, ReportsTheBrovixEntryAlthoughTheAvatarIsStoredUnderItsOwnName) {
  OpenThumb avatar(source, Thumb::OPT_AVATAR, false);
  Prepare(&avatar);
  EXPECT_TRUE(avatar.SetOutFromEXIFPreview());
  EXPECT_EQ(avatar.GetOutputFile(), entry);
  EXPECT_EQ(Entries(source), Listing{"TAVIAVATAR_640x640.jpg"});
}

}  // namespace
}  // namespace tavithumb::test
