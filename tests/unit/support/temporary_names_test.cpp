// SPDX-License-Identifier: GPL-3.0-or-later
// Every temporary name that the library makes, and how it is recognised.
#include <gtest/gtest.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <map>
#include <optional>

#include "../records.h"
#include "fake_libc.h"
#include "pictures.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

TEST(TemporaryFiles, AreTheLibrarysInTheirFolders) {
  for (const char* path : {
           "/tmp/thumb.4711.1700000000.1804289383.jpg",
           "/tmp/thumb.1.2.0.tif",
           "/var/tmp/tavithumb_TAVIFILETMP_THUMB.jpg_1234_1700000000",
           "/var/tmp/tavithumb_TAVIFILETMP_THUMB_r-1.png_1234_1700000000",
           "/var/tmp/tavithumb_TAVIFILETMP_THUMB_r1.gif_1234_1700000000_1",
           "/var/tmp/convert_thumbnail__1700000000cat.gif",
           "/var/tmp/convert_thumbnail__1700000000new\nline\xfc.gif",
       }) {
    EXPECT_TRUE(file::IsTemporaryFile(path)) << path;
  }
  for (const char* path : {
           "/tmp/thumb.4711.1700000000.1804289383",
           "/tmp/thumb.4711.1700000000.jpg",
           "/tmp/thumb.4711.1700000000.1804289383.jpg.bak",
           "/tmp/thumb.-1.2.3.jpg",
           "/tmp/thumb.a.2.3.jpg",
           "/tmp/Thumb.1.2.3.jpg",
           "/tmp/x/thumb.1.2.3.jpg",
           "/var/tmp/thumb.1.2.3.jpg",
           "/tmp/tavithumb_TAVIFILETMP_THUMB.jpg_1234_1700000000",
           "/var/tmp/tavithumb_TAVIFILETMP_THUMB.jpg",
           "/var/tmp/tavithumb_TAVIFILETMP_THUMB.jpg_1234",
           "/var/tmp/tavithumb_TAVIFILETMP_THUMB.jpg_1_2_3_4",
           "/var/tmp/tavithumb_abc_1234_1700000000",
           "/var/tmp/tavithumb_TAVIFILE_THUMB_M.jpg_1_2",
           "/tmp/convert_thumbnail__1700000000cat.gif",
           "/var/tmp/convert_thumbnail_1700000000cat.gif",
           "/var/tmp/convert_thumbnail__cat.gif",
           "/var/tmp/convert_thumbnail__1700000000cat/dog.gif",
           "/var/tmp/convert_thumbnail__1",
           "/tmp/tavithumb-web.abcDEF",
       }) {
    EXPECT_FALSE(file::IsTemporaryFile(path)) << path;
  }
}

TEST(TemporaryFiles, AreInTheFoldersThatAreNamed) {
  EXPECT_EQ(std::vector<std::string>(file::TEMPORARY_FOLDERS.begin(), file::TEMPORARY_FOLDERS.end()),
            (std::vector<std::string>{"/tmp", "/var/tmp"}));
  EXPECT_EQ(file::GetPreviewTmpPrefix(4711), "/tmp/thumb.4711.");
}

struct Entry {
  std::string name;
  std::string entry;
  int quarterTurns;
};

TEST(TemporaryEntries, TellWhatTheyExtend) {
  const Entry rows[] = {
      {"TAVIFILETMP_THUMB.jpg", "", 0},
      {"TAVIFILETMP_THUMB_r1.gif", "", 1},
      {"TAVIFILETMP_THUMB_r-3.png", "", -3},
      {"TAVIFILETMP_THUMB_r2.jpg_1700000000", "", 2},
      {"TAVIFILETMP_THUMB_r2.jpg_1234_1700000000", "", 2},
      {"tavithumb_TAVIFILETMP_THUMB_r3.jpg_1234_1700000000_1234_1700000000", "", 3},
      {"TAVIFILE_THUMB_M.jpg_1234_1700000000", "TAVIFILE_THUMB_M.jpg", 0},
      {"TAVIFILE_THUMB_M_r1.jpg_1700000000", "TAVIFILE_THUMB_M_r1.jpg", 0},
      {"any_1", "any", 0},
      {"any_1_2_3", "any_1", 0},
  };
  for (const Entry& row : rows) {
    SCOPED_TRACE(row.name);
    const std::optional<file::TemporaryEntry> entry = file::ParseTemporaryEntry(row.name);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->entry, row.entry);
    EXPECT_EQ(entry->quarterTurns, row.quarterTurns);
  }
}

TEST(TemporaryEntries, AreNothingElse) {
  for (const char* name : {"",
                           "any",
                           "1",
                           "any_",
                           "any_a",
                           "any_1_",
                           "TAVIFILE_THUMB_M.jpg",
                           "TAVIFILETMP_THUMB",
                           "TAVIFILETMP_THUMB.jpeg",
                           "TAVIFILETMP_THUMB.JPG",
                           "TAVIFILETMP_THUMB_r0.jpg",
                           "TAVIFILETMP_THUMB_r4.jpg",
                           "TAVIFILETMP_THUMB_r.jpg",
                           "TAVIFILETMP_THUMB_r12.jpg",
                           "TAVIFILETMP_THUMB_r--1.jpg",
                           "TAVIFILETMP_THUMB_M.jpg",
                           "xTAVIFILETMP_THUMB.jpg",
                           "tavithumb_TAVIFILETMP_THUMB.jpg",
                           "tavithumb_TAVIFILETMP_THUMB.jpg_1_2",
                           "tavithumb_TAVIFILETMP_THUMB.jpg_1_2_3",
                           "tavithumb_TAVIFILE_THUMB_M.jpg_1_2_3_4"}) {
    EXPECT_FALSE(file::ParseTemporaryEntry(name)) << name;
  }
}

// The names as the operations of the library use them, by what they are for.
class MadeNames : public testing::Test {
 protected:
  MadeNames() {
    libc.time = [] { return time_t{1700000000}; };
    libc.getpid = [] { return pid_t{1234}; };
    libc.rand = [] { return 1804289383; };
    platform.open = [this](const std::string&, const std::vector<std::string>&) { return StreamOf(raw); };
  }
  ~MadeNames() override { RealUnlink(preview.c_str()); }

  // A GIF is one that stays one.
  OpenInfo Record(const std::string& mimeType, int quarterTurns) const {
    OpenInfo info = JpegRecord(800, 600, {120, 120});
    info.mimeType_ = mimeType;
    info.rotate_ = quarterTurns;
    info.enableGIF_ = true;
    return info;
  }
  std::string InEA(const std::string& path) const {
    const std::string begin = folder / "ea/a.jpg/";
    EXPECT_EQ(path.substr(0, begin.size()), begin);
    return path.substr(begin.size());
  }

  const TempDir folder;
  const std::string source = folder / "a.jpg";
  const std::string preview = "/tmp/thumb.1234.1700000000.1804289383.jpg";
  const std::string raw = "preview";
  RecordingPlatform platform{folder / "ea"};
  FakeLibc libc;
};

TEST_F(MadeNames, InEADirectoriesAreRecognised) {
  struct NamingDJpeg : OpenCommand<DJpegCmd> {
    using DJpegCmd::tmpPath_;
    using OpenCommand<DJpegCmd>::OpenCommand;
  };
  struct NamingDcraw : OpenCommand<DcrawCmd> {
    using DcrawCmd::rawThumbPath_;
    using OpenCommand<DcrawCmd>::OpenCommand;
  };
  MakeJpeg(source, 60, 40);
  WriteFile(folder / "ea/a.jpg/other", "");
  for (const char* mimeType : {"image/jpeg", "image/png", "image/gif"}) {
    for (int turns = 0; turns < 4; ++turns) {
      const OpenInfo info = Record(mimeType, turns);
      const std::string work = info.GetBrovixTmpThumbEAName();
      const std::string final = info.GetBrovixThumbEAName();
      const std::string inVarTmp = file::GetVarTmpPath(work);
      std::map<std::string, std::string> names = {
          // and the entries that they extend
          {work, ""},
          {InEA(file::GetEATmpPath(source, work)), ""},
          {InEA(file::GetEATmpPath(source, final)), final},
          {InEA(NamingDcraw(info, source, file::GetEAPath(source, work)).rawThumbPath_), ""},
          {InEA(NamingDcraw(info, source, inVarTmp).rawThumbPath_), ""}};
      if (turns != 0) names[InEA(NamingDJpeg(info, source, file::GetEAPath(source, work)).tmpPath_)] = "";
      EXPECT_EQ(names.size(), turns == 0 ? 4u : 5u);
      for (const auto& [name, entry] : names) {
        const std::optional<file::TemporaryEntry> parsed = file::ParseTemporaryEntry(name);
        ASSERT_TRUE(parsed) << name;
        EXPECT_EQ(parsed->entry, entry) << name;
        EXPECT_EQ(parsed->quarterTurns, entry.empty() ? turns : 0) << name;
      }
      EXPECT_TRUE(file::IsTemporaryFile(inVarTmp)) << inVarTmp;
      // Where nothing is to be rotated, djpeg writes the work file itself.
      EXPECT_TRUE(file::IsTemporaryFile(NamingDJpeg(info, source, inVarTmp).tmpPath_));
    }
  }
}

TEST_F(MadeNames, OfFramesAreRecognised) {
  struct NamingGif : OpenCommand<GIFConvertCmd> {
    using GIFConvertCmd::coalesceTmpPath_;
    using OpenCommand<GIFConvertCmd>::OpenCommand;
  };
  for (const char* name : {"cat.gif", "2024", "new\nline\xfc.gif", "_1_2.gif"}) {
    const NamingGif command(Record("image/gif", 0), std::string("/vol/") + name, "/v/d.gif");
    EXPECT_EQ(command.coalesceTmpPath_, std::string("/var/tmp/convert_thumbnail__1700000000") + name);
    EXPECT_TRUE(file::IsTemporaryFile(command.coalesceTmpPath_)) << name;
  }
}

TEST_F(MadeNames, OfPreviewsAreRecognised) {
  MakeJpeg(source, 800, 600);
  MakeJpeg(folder / "preview.jpg", 160, 120);
  SetPreview(source, folder / "preview.jpg");
  ThumbInfo info(source, "small", {120, 120});
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), preview);
  EXPECT_TRUE(file::IsTemporaryFile(preview));
  EXPECT_EQ(preview.rfind(file::GetPreviewTmpPrefix(1234), 0), 0u);
}

}  // namespace
}  // namespace tavithumb::test
