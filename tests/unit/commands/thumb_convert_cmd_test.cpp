// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "../records.h"
#include "recording_platform.h"

namespace tavithumb::test {
namespace {

TEST(ThumbConvertCmd, NamesTheToolsByTheirPinnedPaths) {
  EXPECT_EQ(ThumbConvertCmd::kJpegtran, "/usr/bin/jpegtran");
  EXPECT_EQ(ThumbConvertCmd::kDjpeg, "/usr/bin/djpeg");
  EXPECT_EQ(ThumbConvertCmd::kDcraw, "/usr/bin/dcraw");
  EXPECT_EQ(ThumbConvertCmd::kConvert, "/usr/bin/convert");
}

template <typename Command>
constexpr bool isPlainCommand = std::is_base_of_v<ThumbConvertCmd, Command> && !std::is_abstract_v<Command> &&
                                !std::is_copy_constructible_v<Command> && !std::is_copy_assignable_v<Command> &&
                                !std::is_move_constructible_v<Command> && !std::has_virtual_destructor_v<Command>;

TEST(ThumbConvertCmd, IsAnAbstractBaseOfCommandsThatCannotBeCopied) {
  EXPECT_TRUE(std::is_abstract_v<ThumbConvertCmd>);
  EXPECT_FALSE(std::has_virtual_destructor_v<ThumbConvertCmd>);
  EXPECT_TRUE(isPlainCommand<DJpegCmd>);
  EXPECT_TRUE(isPlainCommand<JpegTranCmd>);
  EXPECT_TRUE(isPlainCommand<DcrawCmd>);
  EXPECT_TRUE(isPlainCommand<ConvertCmd>);
  EXPECT_TRUE(isPlainCommand<GIFConvertCmd>);
}

TEST(ThumbConvertCmd, StartsItsVectorWithAToolAndEndsItWithANullPointer) {
  RecordingPlatform platform;
  const OpenInfo info = JpegRecord(400, 300, {120, 120});
  const OpenCommand<DJpegCmd> djpeg(info, "/v/a.jpg", "/v/d");
  const OpenCommand<ConvertCmd> convert(info, "/v/a.jpg", "/v/d");
  const OpenCommand<JpegTranCmd> jpegtran(info, "/v/a.jpg", "/v/d", false);
  const OpenCommand<DcrawCmd> dcraw(info, "/v/a.nef", "/v/d");
  OpenCommand<GIFConvertCmd> gif(info, "/v/a.gif", "/v/d");
  EXPECT_TRUE(gif.args_.empty());
  EXPECT_TRUE(gif.exec());
  EXPECT_EQ(djpeg.args_.front(), ThumbConvertCmd::kDjpeg);
  EXPECT_EQ(convert.args_.front(), ThumbConvertCmd::kConvert);
  EXPECT_EQ(jpegtran.args_.front(), ThumbConvertCmd::kJpegtran);
  EXPECT_EQ(dcraw.args_.front(), ThumbConvertCmd::kDcraw);
  EXPECT_EQ(gif.args_.front(), ThumbConvertCmd::kConvert);
  for (const std::vector<const char*>* args :
       {&std::as_const(djpeg.args_), &convert.args_, &jpegtran.args_, &dcraw.args_, &std::as_const(gif.args_)}) {
    EXPECT_EQ(args->back(), nullptr);
  }
}

struct Bare : OpenCommand<ThumbConvertCmd> {
  using OpenCommand<ThumbConvertCmd>::OpenCommand;
  bool exec() override { return true; }
};

TEST(ThumbConvertCmd, KeepsItsPathsAndLeavesTheVectorAndTheStringsEmpty) {
  const Bare command(JpegRecord(400, 300, {120, 120}), "/v/a.jpg", "/v/d.jpg");
  EXPECT_EQ(command.src_, "/v/a.jpg");
  EXPECT_EQ(command.dest_, "/v/d.jpg");
  EXPECT_EQ(command.info_.GetWidth(), 400u);
  EXPECT_TRUE(command.args_.empty());
  EXPECT_EQ(command.geometry_ + command.rotateDegrees_ + command.userRotateDegrees_, "");
}

TEST(ThumbConvertCmd, PointsIntoItsOwnStrings) {
  OpenInfo info = JpegRecord(400, 300, {120, 120});
  info.rotate_ = 1;
  info.userRotate_ = 2;
  const OpenCommand<ConvertCmd> command(info, "/v/a.jpg", "/v/d.jpg");
  EXPECT_EQ(command.args_[0], ThumbConvertCmd::kConvert.c_str());
  EXPECT_EQ(command.args_[4], command.src_.c_str());
  EXPECT_EQ(command.args_[6], command.geometry_.c_str());
  EXPECT_EQ(command.args_[8], command.rotateDegrees_.c_str());
  EXPECT_EQ(command.args_[10], command.userRotateDegrees_.c_str());
  EXPECT_EQ(command.args_[11], command.dest_.c_str());
}

TEST(ThumbConvertCmd, TreatsAnyResultButZeroAsAFailure) {
  const OpenInfo info = JpegRecord(400, 300, {120, 120});
  for (const int result : {0, 1, -1, 127, 256}) {
    SCOPED_TRACE(result);
    RecordingPlatform platform;
    platform.run = [result](const std::string&, const std::vector<std::string>&) { return result; };
    EXPECT_EQ(DJpegCmd(info, "/v/a.jpg", "/v/d").exec(), result == 0);
    EXPECT_EQ(ConvertCmd(info, "/v/a.jpg", "/v/d").exec(), result == 0);
    EXPECT_EQ(JpegTranCmd(info, "/v/a.jpg", "/v/d", false).exec(), result == 0);
    EXPECT_EQ(GIFConvertCmd(info, "/v/a.gif", "/v/d").exec(), result == 0);
    platform.run = [result](const std::string&, const std::vector<std::string>& argv) {
      return argv[2] == "-coalesce" ? 0 : result;
    };
    EXPECT_EQ(GIFConvertCmd(info, "/v/a.gif", "/v/d").exec(), result == 0);
  }
}

TEST(ThumbConvertCmd, KeepsTheValuesItWasConstructedWith) {
  RecordingPlatform platform;
  OpenInfo info = JpegRecord(4000, 3000, {640, 640});
  ConvertCmd command(info, "/v/a.tif", "/v/d.jpg");
  info.dimension_ = {1, 1};
  info.rotate_ = 3;
  EXPECT_TRUE(command.exec());
  EXPECT_EQ(platform.Calls("TLIBCExecv"),
            (std::vector<PlatformCall>{{"TLIBCExecv", "/usr/bin/convert", "1", "/usr/bin/convert", "-strip",
                                        "-colorspace", "sRGB", "/v/a.tif[0]", "-thumbnail", "640x640", "-rotate", "0",
                                        "-rotate", "0", "/v/d.jpg"}}));
}

}  // namespace
}  // namespace tavithumb::test
