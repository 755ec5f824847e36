// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <tavithumb/util.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace tavithumb::test {
namespace {

const std::vector<std::string> images = {"jpg", "jpeg", "jpe", "bmp", "png", "tif", "tiff", "gif", "arw",  "srf", "sr2",
                                         "dcr", "k25",  "kdc", "cr2", "crw", "nef", "mrw",  "ptx", "pef",  "raf", "3fr",
                                         "erf", "mef",  "mos", "orf", "rw2", "dng", "x3f",  "raw", "heic", "heif"};

const std::vector<std::string> videos = {
    "3gp", "3g2",   "asf",   "dat",   "divx", "dvr-ms", "m2t",  "m2ts", "mk3d", "mka", "mks", "m4a",
    "m4v", "mkv",   "mp4",   "mts",   "m4p",  "m4b",    "m4r",  "mov",  "qt",   "tp",  "trp", "ts",
    "vob", "wmv",   "xvid",  "ac3",   "amr",  "rm",     "rmvb", "ifo",  "mpeg", "mpg", "mpe", "m1v",
    "m2v", "mpeg1", "mpeg2", "mpeg4", "ogv",  "webm",   "flv",  "f4v",  "avi",  "swf", "vdr", "iso"};

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

TEST(SupportedTypes, AreThirtyTwoImagesAndFortyEightVideos) {
  EXPECT_EQ(images.size(), 32u);
  EXPECT_EQ(videos.size(), 48u);
}

TEST(SupportedTypes, AreImagesByTheirExtensionInEitherCase) {
  for (const std::string& extension : images) {
    for (const std::string& name : {"/v/a." + extension, "/v/A." + Upper(extension)}) {
      EXPECT_TRUE(IsSupportImage(name)) << name;
      EXPECT_FALSE(IsSupportVideo(name)) << name;
    }
  }
}

TEST(SupportedTypes, AreVideosByTheirExtensionInEitherCase) {
  for (const std::string& extension : videos) {
    for (const std::string& name : {"/v/a." + extension, "/v/A." + Upper(extension)}) {
      EXPECT_TRUE(IsSupportVideo(name)) << name;
      EXPECT_FALSE(IsSupportImage(name)) << name;
    }
  }
}

TEST(SupportedTypes, IncludeNothingElse) {
  for (const std::string name : {"a.tar.gz", "/share/jpg", "/share/mp4", "/share/old.d/readme", "a.jpeg ", "a.webp",
                                 "a.avif", "a.jxl", "a.", "", "a.jpg.txt", "a.jp", "a.jpgg", "a.cr3", "a.txt"}) {
    EXPECT_FALSE(IsSupportImage(name)) << name;
    EXPECT_FALSE(IsSupportVideo(name)) << name;
  }
}

TEST(SupportedTypes, TreatABareNameWithoutADotAsItsExtension) {
  EXPECT_TRUE(IsSupportImage("jpg"));
  EXPECT_TRUE(IsSupportVideo("MP4"));
}

TEST(IsSupportExt, ComparesStringsNotPointers) {
  const std::string text = "abc";
  const std::unordered_set<const char*> set = {text.c_str()};
  EXPECT_TRUE(IsSupportExt(set, "/x/file.ABC"));
  EXPECT_FALSE(IsSupportExt(set, "/x/file.abcd"));
  EXPECT_FALSE(IsSupportExt(set, "/x/file.ab"));
}

TEST(IsSupportExt, FindsNothingInAnEmptySet) {
  EXPECT_FALSE(IsSupportExt({}, "/x/file.abc"));
  EXPECT_FALSE(IsSupportExt({}, ""));
}

}  // namespace
}  // namespace tavithumb::test
