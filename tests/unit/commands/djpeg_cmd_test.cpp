// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "../records.h"
#include "fake_libc.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Calls = std::vector<PlatformCall>;

struct OpenDJpeg : OpenCommand<DJpegCmd> {
  using DJpegCmd::scaleString_;
  using DJpegCmd::tmpPath_;
  using OpenCommand<DJpegCmd>::OpenCommand;
};

PlatformCall DJpegRun(const std::string& scale, const std::string& to, const std::string& from) {
  return {"TLIBCExecv", "/usr/bin/djpeg", "1",        "/usr/bin/djpeg", "-scale",   scale, "-dct",
          "fast",       "-fast",          "-onepass", "-bmp",           "-outfile", to,    from};
}

PlatformCall ConvertRun(const std::string& from, const std::string& geometry, const std::string& degrees,
                        const std::string& userDegrees, const std::string& to) {
  return {"TLIBCExecv", "/usr/bin/convert", "1",       "/usr/bin/convert",
          "-strip",     "-colorspace",      "sRGB",    from + "[0]",
          "-thumbnail", geometry,           "-rotate", degrees,
          "-rotate",    userDegrees,        to};
}

TEST(DJpegCmd, SavesNothingOnASourceThatHasNoMoreBytesThanItsDecode) {
  constexpr int decoded = 400 * 300 * 3 + 54;
  const std::pair<int, bool> rows[] = {{0, true}, {decoded - 1, true}, {decoded, true}, {decoded + 1, false}};
  for (const auto& [bytes, isSmaller] : rows) {
    OpenInfo info = JpegRecord(800, 600, {400, 300});
    info.stat_.st_size = bytes;
    EXPECT_EQ(DJpegCmd(info, "/v/a.jpg", "/v/d.jpg").IsSourceSmaller(), isSmaller) << bytes;
  }
}

TEST(DJpegCmd, DecodesAtTheFirstScaleThatFitsAndKeepsThreeQuartersOfTheTarget) {
  struct Row {
    std::uint32_t width, height;
    ThumbDimension box;
    int scale;
    const char* text;
  };
  const Row rows[] = {
      {4000, 3000, {320, 240}, 3, "1/8"},          // fits at none; 187500 pixels are more than 57600
      {800, 600, {400, 300}, 1, "1/2"},            // exactly twice the target
      {1600, 1200, {400, 300}, 2, "1/4"},          // exactly four times
      {3200, 2400, {400, 300}, 3, "1/8"},          // exactly eight times
      {300, 200, {640, 640}, 0, "1/1"},            // smaller than the target: never below zero
      {640, 480, {640, 480}, 0, "1/1"},            // equal
      {1700, 1300, {400, 300}, 2, "1/4"},          // fits at none, and 1/8 leaves too little
      {1000, 100, {500, 500}, 0, "1/1"},           // fits at 1/2, which leaves 25000 of 50000 pixels
      {400, 150, {200, 100}, 0, "1/1"},            // exactly three quarters are too few
      {400, 151, {200, 100}, 1, "1/2"},            // and a little more is enough
      {65536, 65536, {1280, 1280}, 2, "1/4"},      // the product wraps to 0
      {400, 1200, {400, 300}, 1, "1/2"},           // the height fits at 1/4, which leaves 30000 of 120000
      {1600, 300, {400, 300}, 1, "1/2"},           // and so does the width
      {80000, 80000, {40000, 40000}, 0, "1/1"},    // so it leaves 526258176 pixels at 1/2: too few
      {140000, 140000, {70000, 70000}, 1, "1/2"},  // the target's area wraps as well
      {0, 0, {640, 640}, 0, "1/1"},                // facts not known
      {801, 600, {400, 300}, 1, "1/2"},            // 801 halved and cut to 400
      {802, 600, {400, 300}, 1, "1/2"},            // 401 does not fit; 1/4 leaves 30075 of 120000, so one step back
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.width << "x" << row.height << " into " << row.box);
    OpenDJpeg command(JpegRecord(row.width, row.height, row.box), "/v/a.jpg", "/v/d.jpg");
    EXPECT_EQ(command.CalcScale(), row.scale);
    EXPECT_EQ(command.GetScale(), row.scale);
    EXPECT_EQ(command.scaleString_, row.text);
  }
}

TEST(DJpegCmd, FitsTheStoredPictureIntoTheBoxBeforeRotatingIt) {
  OpenInfo info = JpegRecord(800, 600, {300, 400});
  EXPECT_EQ(DJpegCmd(info, "/v/a", "/v/d").CalcScale(), 1);
  info.dimension_ = {150, 400};
  EXPECT_EQ(DJpegCmd(info, "/v/a", "/v/d").CalcScale(), 2);
  info.userRotate_ = 1;  // 400 x 150 in the stored orientation
  info.width_ = 1200;
  EXPECT_EQ(DJpegCmd(info, "/v/a", "/v/d").CalcScale(), 1);
}

TEST(DJpegCmd, RecomputesTheScaleOnEachCall) {
  OpenDJpeg command(JpegRecord(800, 600, {400, 300}), "/v/a.jpg", "/v/d.jpg");
  command.scaleString_ = "";
  command.CalcScaleString();
  EXPECT_EQ(command.scaleString_, "1/2");
}

TEST(DJpegCmd, CountsThreeBytesPerPixelPlusTheHeader) {
  struct Row {
    std::uint32_t width, height;
    ThumbDimension box;
    unsigned bytes;
  };
  const Row rows[] = {
      {4032, 3024, {120, 120}, 190512 * 3 + 54},
      {800, 600, {400, 300}, 120000 * 3 + 54},
      {3, 3, {640, 640}, 9 * 3 + 54},  // no padding of rows
      {65536, 65536, {1280, 1280}, 54},
      {40000, 40000, {40000, 40000}, 505032758},  // 4800000054 wraps around
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.width << "x" << row.height);
    EXPECT_EQ(DJpegCmd(JpegRecord(row.width, row.height, row.box), "/v/a", "/v/d").GetConvertBytes(), row.bytes);
  }
}

TEST(DJpegCmd, IsNotWorthKeepingWhenItsBytesAndHalfAMebibyteExceedTheSource) {
  OpenInfo info = JpegRecord(4032, 3024, {120, 120});  // 571590 bytes
  info.stat_.st_size = 571590 + 524288;
  EXPECT_FALSE(DJpegCmd(info, "/v/a", "/v/d").IsNeedDelete());
  info.stat_.st_size -= 1;
  EXPECT_TRUE(DJpegCmd(info, "/v/a", "/v/d").IsNeedDelete());
}

TEST(DJpegCmd, ComparesItsBytesWithTheSourcesUnsignedIn32Bits) {
  OpenInfo info = JpegRecord(36000, 39766, {40000, 40000});  // 4294728054 bytes, half a MiB more wraps to 285046
  info.stat_.st_size = 285046;
  EXPECT_FALSE(DJpegCmd(info, "/v/a", "/v/d").IsNeedDelete());
  info.stat_.st_size = 285045;
  EXPECT_TRUE(DJpegCmd(info, "/v/a", "/v/d").IsNeedDelete());
}

TEST(DJpegCmd, WritesDirectlyToTheDestinationWithoutARotation) {
  for (const auto& [rotate, userRotate] : {std::pair{0, 0}, {1, 3}, {2, 2}, {3, 5}, {0, -4}, {3, 2147483645}}) {
    SCOPED_TRACE(testing::Message() << rotate << " and " << userRotate);
    RecordingPlatform platform;
    OpenInfo info = JpegRecord(800, 600, {400, 300});
    info.rotate_ = rotate;
    info.userRotate_ = userRotate;
    OpenDJpeg command(info, "/v/a.jpg", "/v/d.jpg");
    EXPECT_TRUE(command.exec());
    EXPECT_EQ(platform.calls, (Calls{DJpegRun(command.scaleString_, "/v/d.jpg", "/v/a.jpg")}));
  }
}

TEST(DJpegCmd, LetsConvertRotateAndMirrorItsTemporaryOutput) {
  struct Row {
    int rotate, userRotate;
    bool flop;
  };
  for (const Row& row : {Row{1, 0, false}, Row{0, 3, false}, Row{0, 0, true}, Row{2, 3, true}, Row{0, -1, false}}) {
    SCOPED_TRACE(testing::Message() << row.rotate << " " << row.userRotate << " " << row.flop);
    const TempDir folder;
    const std::string dest = folder / "d.jpg", temporary = dest + "_1700000000";
    RecordingPlatform platform;
    platform.run = [&](const std::string& path, const std::vector<std::string>&) {
      WriteFile(path == "/usr/bin/djpeg" ? temporary : dest, "");
      return 0;
    };
    FakeLibc libc;
    libc.time = [] { return time_t{1700000000}; };
    OpenInfo info = JpegRecord(800, 800, {400, 400});
    info.rotate_ = row.rotate;
    info.userRotate_ = row.userRotate;
    info.flop_ = row.flop;
    OpenDJpeg command(info, "/v/a.jpg", dest);
    EXPECT_TRUE(command.exec());
    PlatformCall convert =
        ConvertRun(temporary, "400x400", std::to_string(row.rotate * 90), std::to_string(row.userRotate * 90), dest);
    if (row.flop) convert.insert(convert.end() - 3, "-flop");
    EXPECT_EQ(platform.calls, (Calls{DJpegRun("1/2", temporary, "/v/a.jpg"), convert}));
    EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"d.jpg"}));
  }
}

TEST(DJpegCmd, LeavesDJpegsPartialOutputWhenDJpegFails) {
  const TempDir folder;
  RecordingPlatform platform;
  platform.run = [&](const std::string&, const std::vector<std::string>& argv) {
    WriteFile(argv[9], "partial");
    return 1;
  };
  FakeLibc libc;
  libc.time = [] { return time_t{7}; };
  OpenInfo info = JpegRecord(800, 600, {400, 300});
  info.rotate_ = 1;
  EXPECT_FALSE(DJpegCmd(info, "/v/a.jpg", folder / "d.jpg").exec());
  EXPECT_EQ(platform.calls.size(), 1u);
  EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"d.jpg_7"}));
}

TEST(DJpegCmd, LeavesNothingWhenConvertFails) {
  const TempDir folder;
  RecordingPlatform platform;
  platform.run = [&](const std::string& path, const std::vector<std::string>& argv) {
    WriteFile(path == "/usr/bin/djpeg" ? argv[9] : argv.back(), "partial");
    return path == "/usr/bin/djpeg" ? 0 : 1;
  };
  OpenInfo info = JpegRecord(800, 600, {400, 300});
  info.flop_ = true;
  EXPECT_FALSE(DJpegCmd(info, "/v/a.jpg", folder / "d.jpg").exec());
  EXPECT_EQ(platform.calls.size(), 2u);
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{});
}

TEST(DJpegCmd, SharesItsTemporaryNameWithAnotherOfTheSameSecond) {
  FakeLibc libc;
  libc.time = [] { return time_t{7}; };
  OpenInfo info = JpegRecord(800, 600, {400, 300});
  info.rotate_ = 1;
  const OpenDJpeg a(info, "/v/a.jpg", "/v/d.jpg"), b(info, "/v/b.jpg", "/v/d.jpg");
  EXPECT_EQ(a.tmpPath_, "/v/d.jpg_7");
  EXPECT_EQ(b.tmpPath_, "/v/d.jpg_7");
}

TEST(DJpegCmd, BacksOffAtThreeQuarters) {
  EXPECT_EQ(DJpegCmd::TOO_SMALL_RATIO, 0.75);
}

}  // namespace
}  // namespace tavithumb::test
