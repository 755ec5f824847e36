// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "../records.h"
#include "fake_libc.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Arguments = std::vector<std::string>;

Arguments Vector(const OpenInfo& info) {
  const OpenCommand<ConvertCmd> command(info, "/v/a.tif", "/v/d.jpg");
  return Arguments(command.args_.begin(), command.args_.end() - 1);
}

TEST(ConvertCmd, ScalesTheFirstFrame) {
  EXPECT_EQ(Vector(JpegRecord(4000, 3000, {640, 480})),
            (Arguments{"/usr/bin/convert", "-strip", "-colorspace", "sRGB", "/v/a.tif[0]", "-thumbnail", "640x480",
                       "-rotate", "0", "-rotate", "0", "/v/d.jpg"}));
}

TEST(ConvertCmd, AsksThePlatformWhetherItWouldRun) {
  for (const bool isLiteral : {true, false}) {
    RecordingPlatform platform;
    platform.takesNamesLiterally = isLiteral;
    const ConvertCmd command(JpegRecord(4000, 3000, {640, 480}), "/v/%d.tif", "/v/d.jpg");
    EXPECT_EQ(command.IsRefused(), !isLiteral);
    EXPECT_EQ(platform.calls,
              (std::vector<PlatformCall>{{"TLIBCTakesNamesLiterally", "/usr/bin/convert", "/usr/bin/convert", "-strip",
                                          "-colorspace", "sRGB", "/v/%d.tif[0]", "-thumbnail", "640x480", "-rotate",
                                          "0", "-rotate", "0", "/v/d.jpg"}}));
  }
}

TEST(ConvertCmd, MirrorsBetweenTheStoredAndTheUsersRotation) {
  OpenInfo info = JpegRecord(4000, 3000, {640, 480});
  info.rotate_ = 1;
  info.userRotate_ = 2;
  info.flop_ = true;
  EXPECT_EQ(Vector(info), (Arguments{"/usr/bin/convert", "-strip", "-colorspace", "sRGB", "/v/a.tif[0]", "-thumbnail",
                                     "480x640", "-rotate", "90", "-flop", "-rotate", "180", "/v/d.jpg"}));
}

TEST(ConvertCmd, CropsTheCentre) {
  OpenInfo info = JpegRecord(400, 240, {320, 240});
  info.cropMode_ = true;
  EXPECT_EQ(Vector(info), (Arguments{"/usr/bin/convert", "-strip", "-colorspace", "sRGB", "/v/a.tif[0]", "-crop",
                                     "320x240+40+0", "-rotate", "0", "-rotate", "0", "/v/d.jpg"}));
  info.flop_ = true;
  info.rotate_ = 3;
  EXPECT_EQ(Vector(info), (Arguments{"/usr/bin/convert", "-strip", "-colorspace", "sRGB", "/v/a.tif[0]", "-crop",
                                     "240x240+40+0", "-rotate", "270", "-flop", "-rotate", "0", "/v/d.jpg"}));
}

TEST(ConvertCmd, ComputesTheOffsetsOfACropUnsigned) {
  struct Row {
    std::uint32_t width, height;
    ThumbDimension box;
    int rotate, userRotate;
    const char* geometry;
  };
  const Row rows[] = {
      {1000, 800, {300, 200}, 0, 0, "300x200+350+300"},
      {1000, 800, {300, 200}, 0, 1, "200x300+400+250"},  // swapped by the user's
                                                         // odd turns
      {1000, 800, {300, 200}, 0, 3, "200x300+400+250"},
      {1000, 800, {300, 200}, 0, -1, "200x300+400+250"},
      {1000, 800, {300, 200}, 0, 2, "300x200+350+300"},
      {1000, 800, {300, 200}, 1, 0, "200x300+350+300"},        // not by the stored one
      {1001, 801, {300, 200}, 0, 0, "300x200+350+300"},        // halves cut off
      {100, 800, {300, 200}, 0, 0, "100x200+2147483548+300"},  // wider than the picture: wraps around
      {0, 0, {120, 120}, 0, 0, "120x120+2147483588+2147483588"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.geometry);
    OpenInfo info = JpegRecord(row.width, row.height, row.box);
    info.cropMode_ = true;
    info.rotate_ = row.rotate;
    info.userRotate_ = row.userRotate;
    EXPECT_EQ(Vector(info)[6], row.geometry);
  }
}

TEST(ConvertCmd, WritesRotationsInDegreesWithTheirSign) {
  const std::pair<int, const char*> rows[] = {{0, "0"},          {1, "90"},    {2, "180"},
                                              {3, "270"},        {4, "360"},   {5, "450"},
                                              {-1, "-90"},       {-3, "-270"}, {2147483647, "-90"},  // wraps around
                                              {-2147483648, "0"}};
  for (const auto& [turns, degrees] : rows) {
    SCOPED_TRACE(turns);
    OpenInfo info = JpegRecord(400, 300, {100, 100});
    info.userRotate_ = turns;
    EXPECT_EQ(Vector(info)[8], "0");
    EXPECT_EQ(Vector(info)[10], degrees);
    std::swap(info.rotate_, info.userRotate_);
    EXPECT_EQ(Vector(info)[8], degrees);
    EXPECT_EQ(Vector(info)[10], "0");
  }
}

TEST(ConvertCmd, RunsTheAddOnsBuildWhileItsMarkerExistsWithTheUsualArgumentZero) {
  RecordingPlatform platform;
  FakeLibc libc;
  bool enabled = true;
  std::vector<std::string> asked;
  libc.access = [&](const char* path, int mode) {
    EXPECT_EQ(mode, F_OK);
    asked.emplace_back(path);
    if (enabled) return 0;
    errno = ENOENT;
    return -1;
  };
  const OpenInfo info = JpegRecord(400, 300, {100, 100});
  ConvertCmd first(info, "/v/a.tif", "/v/d.jpg");
  EXPECT_TRUE(first.IsCodexaEnabled());
  EXPECT_EQ(first.getConvertPath(), "/var/packages/Codexa/target/usr/bin/convert");
  EXPECT_TRUE(first.exec());
  enabled = false;
  ConvertCmd second(info, "/v/a.tif", "/v/d.jpg");
  EXPECT_FALSE(second.IsCodexaEnabled());
  EXPECT_EQ(second.getConvertPath(), "/usr/bin/convert");
  EXPECT_TRUE(second.exec());
  EXPECT_EQ(asked, std::vector<std::string>(6, "/var/packages/Codexa/enabled"));
  const auto call = [](const std::string& path) {
    return PlatformCall{"TLIBCExecv", path,          "1",          "/usr/bin/convert", "-strip",  "-colorspace",
                        "sRGB",       "/v/a.tif[0]", "-thumbnail", "100x100",          "-rotate", "0",
                        "-rotate",    "0",           "/v/d.jpg"};
  };
  EXPECT_EQ(platform.calls,
            (std::vector<PlatformCall>{call("/var/packages/Codexa/target/usr/bin/convert"), call("/usr/bin/convert")}));
}

TEST(ConvertCmd, DoesNotFallBackToTheSystemsConvertAndRemovesTheDestination) {
  const TempDir folder;
  WriteFile(folder / "d.jpg", "partial");
  RecordingPlatform platform;
  platform.run = [](const std::string&, const std::vector<std::string>&) { return 127; };
  FakeLibc libc;
  libc.access = [](const char*, int) { return 0; };
  EXPECT_FALSE(ConvertCmd(JpegRecord(400, 300, {100, 100}), "/v/a.tif", folder / "d.jpg").exec());
  EXPECT_EQ(platform.calls.size(), 1u);
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{});
}

}  // namespace
}  // namespace tavithumb::test
