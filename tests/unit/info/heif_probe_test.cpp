// SPDX-License-Identifier: GPL-3.0-or-later
// How the HEIF probe handles metadata that the available encoders don't write.
#include <gtest/gtest.h>
#include <libheif/heif_cxx.h>
#include <syslog.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "../records.h"
#include "exiv2_lock.h"
#include "fake_libc.h"
#include "pictures.h"
#include "temp_dir.h"

// The linker redirects these calls to here (-Wl,--wrap=NAME), see tests/CMakeLists.txt.
extern "C" {
int __real_heif_image_handle_get_number_of_metadata_blocks(const heif_image_handle*, const char*);
const char* __real_heif_image_handle_get_metadata_type(const heif_image_handle*, heif_item_id);
}

namespace tavithumb::test {
namespace {

std::function<int(int realCount)> countBlocks;
std::function<const char*(heif_item_id)> typeOf;

class HeifProbe : public testing::Test {
 protected:
  HeifProbe() { MakeHeic(path, 100, 80, true); }
  ~HeifProbe() override {
    countBlocks = nullptr;
    typeOf = nullptr;
  }

  const TempDir folder;
  const std::string path = folder / "photo.heic";
  CapturedLog log;
};

TEST_F(HeifProbe, MeasuresAPictureWhoseFirstBlockIsExif) {
  OpenInfo info(path, "small", {120, 120});
  info.rotate_ = 3;
  info.flop_ = true;
  info.CheckAndGetHeif();
  EXPECT_TRUE(info.IsHeic());
  EXPECT_EQ(info.GetWidth(), 100u);
  EXPECT_EQ(info.GetHeight(), 80u);
  EXPECT_EQ(info.GetRotate(), 0);
  EXPECT_FALSE(info.GetFlop());
  EXPECT_EQ(log.lines, std::vector<LogLine>{});
}

TEST_F(HeifProbe, SetsNothingWhenTheFirstBlockIsOfAnotherType) {
  for (const char* type : {"mime", "exif", "Exif ", "Exi"}) {
    SCOPED_TRACE(type);
    typeOf = [type](heif_item_id) { return type; };
    OpenInfo info(path, "small", {120, 120});
    info.rotate_ = 3;
    info.CheckAndGetHeif();
    EXPECT_FALSE(info.IsHeic());
    EXPECT_EQ(info.GetWidth(), 0u);
    EXPECT_EQ(info.GetRotate(), 3);
    EXPECT_EQ(log.lines, std::vector<LogLine>{});
  }
}

TEST_F(HeifProbe, DoesNotLookPastTheFirstBlock) {
  countBlocks = [](int count) { return count + 1; };  // the last element of the list stays zero
  typeOf = [](heif_item_id id) { return id == 0 ? "Exif" : "mime"; };
  OpenInfo info(path, "small", {120, 120});
  info.CheckAndGetHeif();
  EXPECT_FALSE(info.IsHeic());
  EXPECT_EQ(info.GetWidth(), 0u);
  typeOf = [](heif_item_id id) { return id == 0 ? "mime" : "Exif"; };
  info.CheckAndGetHeif();
  EXPECT_TRUE(info.IsHeic());
}

TEST_F(HeifProbe, SetsNothingWithoutMetadata) {
  countBlocks = [](int) { return 0; };
  OpenInfo info(path, "small", {120, 120});
  info.CheckAndGetHeif();
  EXPECT_FALSE(info.IsHeic());
  EXPECT_EQ(info.GetWidth(), 0u);
  EXPECT_EQ(info.GetHeight(), 0u);
  EXPECT_EQ(log.lines, std::vector<LogLine>{});
}

TEST_F(HeifProbe, RunsAfterTheLockOfExiv2IsReleased) {
  bool lockWasFree = false;
  countBlocks = [&](int count) {
    lockWasFree = Exiv2LockIsFree();
    return count;
  };
  OpenInfo info(path, "small", {120, 120});
  info.ExtractImgInfo(false);
  EXPECT_TRUE(info.IsHeic());
  EXPECT_TRUE(lockWasFree);
}

TEST_F(HeifProbe, LeavesTheOrientationOfThePictureAlone) {
  MakeJpeg(folder / "turned.jpg", 100, 80);
  SetExif(folder / "turned.jpg", {{"Exif.Image.Orientation", "6"}});
  RunTool({"/usr/bin/heif-enc", folder / "turned.jpg", "-o", path});
  OpenInfo info(path, "small", {120, 120});
  info.CheckAndGetHeif();
  heif::Context context;
  context.read_from_file(path);
  const heif::ImageHandle picture = context.get_primary_image_handle();
  EXPECT_TRUE(info.IsHeic());
  EXPECT_EQ(info.GetWidth(), static_cast<std::uint32_t>(picture.get_width()));
  EXPECT_EQ(info.GetHeight(), static_cast<std::uint32_t>(picture.get_height()));
  EXPECT_EQ(info.GetRotate(), 0);
  EXPECT_FALSE(info.GetFlop());
}

TEST_F(HeifProbe, LogsARuntimeErrorAndSetsNothing) {
  countBlocks = [](int) -> int { throw std::runtime_error("out of luck"); };
  OpenInfo info(path, "small", {120, 120});
  info.CheckAndGetHeif();
  EXPECT_FALSE(info.IsHeic());
  EXPECT_EQ(log.lines,
            (std::vector<LogLine>{{LOG_ERR, "thumb_info:163 (CheckAndGetHeif) \"runtime error: out of luck\""}}));
}

TEST_F(HeifProbe, PassesOnAnyOtherException) {
  countBlocks = [](int) -> int { throw std::bad_alloc(); };
  OpenInfo info(path, "small", {120, 120});
  EXPECT_THROW(info.CheckAndGetHeif(), std::bad_alloc);
  EXPECT_EQ(log.lines, std::vector<LogLine>{});
}

}  // namespace

extern "C" {
int __wrap_heif_image_handle_get_number_of_metadata_blocks(const heif_image_handle* handle, const char* filter) {
  EXPECT_EQ(filter, nullptr);  // blocks of any type
  const int count = __real_heif_image_handle_get_number_of_metadata_blocks(handle, filter);
  return countBlocks ? countBlocks(count) : count;
}
const char* __wrap_heif_image_handle_get_metadata_type(const heif_image_handle* handle, heif_item_id id) {
  return typeOf ? typeOf(id) : __real_heif_image_handle_get_metadata_type(handle, id);
}
}

}  // namespace tavithumb::test
