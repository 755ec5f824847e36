// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "../records.h"
#include "fake_libc.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Calls = std::vector<PlatformCall>;

struct OpenGif : OpenCommand<GIFConvertCmd> {
  using GIFConvertCmd::coalesceTmpPath_;
  using OpenCommand<GIFConvertCmd>::OpenCommand;
};

constexpr char temporary[] = "/var/tmp/convert_thumbnail__1700000000cat.gif";

PlatformCall FirstPass(const std::string& to = temporary) {
  return {"TLIBCExecv", "/usr/bin/convert", "1", "/usr/bin/convert", "/vol/pics/cat.gif", "-coalesce", to};
}

OpenInfo GifRecord() {
  OpenInfo info = JpegRecord(500, 400, {120, 100});
  info.mimeType_ = "image/gif";
  info.enableGIF_ = true;
  return info;
}

class GIFConvert : public testing::Test {
 protected:
  GIFConvert() {
    libc.time = [] { return time_t{1700000000}; };
    platform.run = [this](const std::string&, const std::vector<std::string>& argv) {
      const bool first = argv[2] == "-coalesce";
      WriteFile(argv.back(), "GIF");
      return first ? firstResult : secondResult;
    };
  }
  ~GIFConvert() override { RealUnlink(temporary); }

  const TempDir folder;
  RecordingPlatform platform;
  FakeLibc libc;
  int firstResult = 0;
  int secondResult = 0;
};

TEST_F(GIFConvert, RunsItsFirstPassInTheConstructorAndItsSecondInExec) {
  OpenInfo info = GifRecord();
  info.rotate_ = 1;
  info.userRotate_ = -1;
  info.flop_ = true;      // ignored
  info.cropMode_ = true;  // ignored
  OpenGif command(info, "/vol/pics/cat.gif", folder / "d.gif");
  EXPECT_EQ(platform.calls, (Calls{FirstPass()}));
  EXPECT_EQ(command.coalesceTmpPath_, temporary);
  EXPECT_TRUE(command.args_.empty());
  EXPECT_TRUE(Exists(temporary));
  EXPECT_TRUE(command.exec());
  EXPECT_EQ(platform.calls, (Calls{FirstPass(),
                                   {"TLIBCExecv", "/usr/bin/convert", "1", "/usr/bin/convert", "-strip", "-colorspace",
                                    "sRGB", "-thumbnail", "120x100", "-rotate", "90", "-layers", "optimize", temporary,
                                    "-rotate", "-90", folder / "d.gif"}}));
  EXPECT_FALSE(Exists(temporary));
  EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"d.gif"}));
}

TEST_F(GIFConvert, NeverRunsTheAddOnsBuild) {
  libc.access = [](const char*, int) { return 0; };
  EXPECT_TRUE(OpenGif(GifRecord(), "/vol/pics/cat.gif", folder / "d.gif").exec());
  for (const PlatformCall& call : platform.calls) EXPECT_EQ(call[1], "/usr/bin/convert");
}

TEST_F(GIFConvert, RunsNothingMoreAfterAFailedFirstPass) {
  firstResult = 1;
  OpenGif command(GifRecord(), "/vol/pics/cat.gif", folder / "d.gif");
  EXPECT_EQ(command.coalesceTmpPath_, "");
  EXPECT_FALSE(Exists(temporary));
  EXPECT_FALSE(command.exec());
  EXPECT_EQ(platform.calls, (Calls{FirstPass()}));
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{});
}

TEST_F(GIFConvert, LeavesTheCoalescedFileAndNoDestinationAfterAFailedSecondPass) {
  secondResult = 1;
  {
    OpenGif command(GifRecord(), "/vol/pics/cat.gif", folder / "d.gif");
    EXPECT_FALSE(command.exec());
  }
  EXPECT_TRUE(Exists(temporary));
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{});
}

TEST_F(GIFConvert, SharesItsTemporaryNameWithAnotherOfTheSameSecondAndFileName) {
  const OpenGif a(GifRecord(), "/one/cat.gif", folder / "a.gif"), b(GifRecord(), "/two/cat.gif", folder / "b.gif");
  EXPECT_EQ(a.coalesceTmpPath_, temporary);
  EXPECT_EQ(b.coalesceTmpPath_, temporary);
}

TEST_F(GIFConvert, EndsTheTemporaryNameWithAPathThatHasNoFolder) {
  const OpenGif command(GifRecord(), "cat.gif", folder / "a.gif");
  EXPECT_EQ(command.coalesceTmpPath_, temporary);
}

}  // namespace
}  // namespace tavithumb::test
