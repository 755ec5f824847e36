// SPDX-License-Identifier: GPL-3.0-or-later
// Which names are the library's, and what they mean.
#include "thumbs/stored_entries.h"

#include <gtest/gtest.h>

#include <vector>

namespace tavithumb::apps {
namespace {

struct Known {
  std::string name;
  std::string consumer;
  std::string size;
  int quarterTurns;
  bool isTemporary;
};

TEST(EntryNames, AreParsedIntoTheirParts) {
  const std::vector<Known> rows = {
      {"TAVIFILE_THUMB_S.jpg", "Brovix", "small", 0, false},
      {"TAVIFILE_THUMB_M_r2.jpg", "Brovix", "medium", 2, false},
      {"TAVIFILE_THUMB_B_r-1.png", "Brovix", "big", -1, false},
      {"TAVIFILE_THUMB_XL_r-3.gif", "Brovix", "large/xlarge", -3, false},
      {"TAVIFILE_THUMB_300x200.jpg", "Brovix", "300x200", 0, false},
      {"TAVIFILE_THUMB_4294967295x0_r1.jpg", "Brovix", "4294967295x0", 1, false},
      {"TAVIFILE_THUMB_M.jpg_1234_1700000000", "Brovix", "medium", 0, true},
      {"TAVIFILE_THUMB_M_r1.jpg_1700000000", "Brovix", "medium", 1, true},
      {"TAVIFILETMP_THUMB.jpg", "Brovix", "", 0, true},
      {"TAVIFILETMP_THUMB_r1.gif", "Brovix", "", 1, true},
      {"TAVIFILETMP_THUMB_r-2.png_1234_1700000000", "Brovix", "", -2, true},
      {"TAVIFILETMP_THUMB.jpg_1700000000", "Brovix", "", 0, true},
      {"tavithumb_TAVIFILETMP_THUMB_r3.jpg_1234_1700000000_1234_1700000000", "Brovix", "", 3, true},
      {".tavi_copy.a1Z9bY", "Brovix", "", 0, true},
      {"TAVIPHOTO_THUMB_M.jpg", "Albumex", "medium", 0, false},
      {"TAVIPHOTO_THUMB_XL.png_12_34", "Albumex", "large/xlarge", 0, true},
      {"TAVIPHOTO:THUMB_XL.jpg", "Albumex old", "large/xlarge", 0, false},
      {"TAVIPHOTO:THUMB_S.gif", "Albumex old", "small", 0, false},
      {"TAVIAVATAR_480x640_r1.jpg", "avatar", "480x640", 1, false},
      {"TAVIAVATAR_120x120.png", "avatar", "120x120", 0, false},
      {"TAVIAVATAR_120x120.png_34", "avatar", "120x120", 0, true},
      {"TAVIVIDEO_VIDEO_SCREENSHOT.jpg", "Cinevo", "", 0, false},
      {"TAVIVIDEO_VIDEO_SCREENSHOT.jpg_1234_1700000000", "Cinevo", "", 0, true},
  };
  for (const Known& row : rows) {
    SCOPED_TRACE(row.name);
    const std::optional<EntryName> entry = ParseEntryName(row.name);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->consumer, row.consumer);
    EXPECT_EQ(entry->size, row.size);
    EXPECT_EQ(entry->quarterTurns, row.quarterTurns);
    EXPECT_EQ(entry->isTemporary, row.isTemporary);
  }
}

TEST(EntryNames, MatchNothingElse) {
  for (const std::string& name : {
           std::string(""),
           std::string("photo.jpg"),
           std::string("TAVIFILE_THUMB_L.jpg"),
           std::string("TAVIFILE_THUMB_m.jpg"),
           std::string("TAVIFILE_THUMB_.jpg"),
           std::string("TAVIFILE_THUMB.jpg"),
           std::string("TAVIFILE_THUMB_M"),
           std::string("TAVIFILE_THUMB_M.jpeg"),
           std::string("TAVIFILE_THUMB_M.JPG"),
           std::string("TAVIFILE_THUMB_M.bmp"),
           std::string("TAVIFILE_THUMB_Mjpg"),
           std::string("TAVIFILE_THUMB_M_r0.jpg"),
           std::string("TAVIFILE_THUMB_M_r4.jpg"),
           std::string("TAVIFILE_THUMB_M_r+1.jpg"),
           std::string("TAVIFILE_THUMB_M_r12.jpg"),
           std::string("TAVIFILE_THUMB_M_r.jpg"),
           std::string("TAVIFILE_THUMB_M_r1_r1.jpg"),
           std::string("TAVIFILE_THUMB_300x.jpg"),
           std::string("TAVIFILE_THUMB_x200.jpg"),
           std::string("TAVIFILE_THUMB_300X200.jpg"),
           std::string("TAVIFILE_THUMB_0300x200.jpg"),
           std::string("TAVIFILE_THUMB_-3x200.jpg"),
           std::string("TAVIFILE_THUMB_12345678901x2.jpg"),
           std::string("TAVIFILE_THUMB_M.jpg.bak"),
           std::string("TAVIFILE_THUMB_M.jpg "),
           std::string("TAVIFILE_THUMB_M.jpg\n"),
           std::string("TAVIFILE_THUMB_M.jpg\0", 21),
           std::string("TAVIFILE_THUMB_M.jpg_"),
           std::string("TAVIFILE_THUMB_M.jpg_a"),
           std::string("TAVIFILE_THUMB_M.jpg_1_"),
           std::string("TAVIFILE_THUMB_M.jpg_1_2_3"),
           std::string("TAVIFILE_THUMB_M.jpg_-1"),
           std::string(" TAVIFILE_THUMB_M.jpg"),
           std::string("xTAVIFILE_THUMB_M.jpg"),
           std::string("tavifile_thumb_m.jpg"),
           std::string("TAVIFILETMP_THUMB"),
           std::string("TAVIFILETMP_THUMB_M.jpg"),
           std::string("TAVIFILETMP_THUMB__r1.jpg"),
           std::string("tavithumb_TAVIFILETMP_THUMB.jpg_1_2"),
           std::string("tavithumb_TAVIFILE_THUMB_M.jpg_1_2_3_4"),
           std::string("TAVIPHOTO_THUMB_M_r1.jpg"),
           std::string("TAVIPHOTO_THUMB_300x200.jpg"),
           std::string("TAVIPHOTO-THUMB_M.jpg"),
           std::string("TAVIPHOTO::THUMB_M.jpg"),
           std::string("TAVIAVATAR_M.jpg"),
           std::string("TAVIAVATAR_120.jpg"),
           std::string("TAVIVIDEO_VIDEO_SCREENSHOT.png"),
           std::string("TAVIVIDEO_VIDEO_SCREENSHOT_r1.jpg"),
           std::string("TAVIVIDEO_VIDEO_SCREENSHOTxjpg"),
           std::string(".tavi_copy.a1Z9b"),
           std::string(".tavi_copy.a1Z9bYx"),
           std::string(".tavi_mkdir.a1Z9bY"),
           "TAVIFILE_THUMB_" + std::string(300, '1') + "x1.jpg",
       }) {
    EXPECT_FALSE(ParseEntryName(name)) << name;
  }
}

TEST(ScratchFolders, BelongToTheWebProgramAndMake) {
  EXPECT_TRUE(IsScratchFolder("/tmp/tavithumb-web.a1Z9bY"));
  EXPECT_TRUE(IsScratchFolder("/tmp/tavithumb-make.a1Z9bY"));
  for (const char* path :
       {"/tmp/tavithumb-web.a1Z9b", "/tmp/tavithumb-web.a1Z9bYx", "/tmp/tavithumb-web.a1Z9b.", "/tmp/tavithumb-web",
        "/var/tmp/tavithumb-web.a1Z9bY", "/tmp/tavithumb-web.a1Z9bY/x", "/tmp/tavithumb-.a1Z9bY",
        "/tmp/tavithumb-makeweb.a1Z9bY", "/tmp/thumb.4711.1700000000.1804289383.jpg",
        "/var/tmp/tavithumb_TAVIFILETMP_THUMB.jpg_1234_1700000000", "/var/tmp/convert_thumbnail__1700000000cat.gif"}) {
    EXPECT_FALSE(IsScratchFolder(path)) << path;
  }
}

}  // namespace
}  // namespace tavithumb::apps
