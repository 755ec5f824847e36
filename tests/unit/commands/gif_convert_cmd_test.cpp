// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <utility>

#include "../records.h"
#include "fake_libc.h"
#include "recording_platform.h"

namespace tavithumb::test {
namespace {

using Calls = std::vector<PlatformCall>;
using Files = std::set<std::string>;

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

// The tool's files are only recorded: the temporary name is the same for every process.
class GIFConvert : public testing::Test {
 protected:
  GIFConvert() {
    libc.time = [] { return time_t{1700000000}; };
    libc.unlink = [this](const char* path) {
      if (files.erase(path) == 1) return 0;
      errno = ENOENT;
      return -1;
    };
    platform.run = [this](const std::string&, const std::vector<std::string>& argv) {
      files.insert(argv.back());
      return argv[2] == "-coalesce" ? firstResult : secondResult;
    };
  }

  std::set<std::string> files;
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
  OpenGif command(info, "/vol/pics/cat.gif", "/v/d.gif");
  EXPECT_EQ(platform.calls, (Calls{FirstPass()}));
  EXPECT_EQ(command.coalesceTmpPath_, temporary);
  EXPECT_TRUE(command.args_.empty());
  EXPECT_EQ(files, Files{temporary});
  EXPECT_TRUE(command.exec());
  EXPECT_EQ(platform.calls, (Calls{FirstPass(),
                                   {"TLIBCExecv", "/usr/bin/convert", "1", "/usr/bin/convert", "-strip", "-colorspace",
                                    "sRGB", "-thumbnail", "120x100", "-rotate", "90", "-layers", "optimize", temporary,
                                    "-rotate", "-90", "/v/d.gif"}}));
  EXPECT_EQ(files, Files{"/v/d.gif"});
}

TEST_F(GIFConvert, WritesRotationsInDegreesWithTheirSign) {
  const std::pair<int, const char*> rows[] = {{0, "0"}, {3, "270"}, {5, "450"}, {-2, "-180"}, {2147483647, "-90"}};
  for (const auto& [turns, degrees] : rows) {
    SCOPED_TRACE(turns);
    OpenInfo info = GifRecord();
    info.rotate_ = turns;
    const OpenGif stored(info, "/vol/pics/cat.gif", "/v/d.gif");
    EXPECT_EQ(stored.rotateDegrees_, degrees);
    EXPECT_EQ(stored.userRotateDegrees_, "0");
    std::swap(info.rotate_, info.userRotate_);
    const OpenGif wanted(info, "/vol/pics/cat.gif", "/v/d.gif");
    EXPECT_EQ(wanted.rotateDegrees_, "0");
    EXPECT_EQ(wanted.userRotateDegrees_, degrees);
  }
}

TEST_F(GIFConvert, NeverRunsTheAddOnsBuild) {
  libc.access = [](const char*, int) { return 0; };
  EXPECT_TRUE(OpenGif(GifRecord(), "/vol/pics/cat.gif", "/v/d.gif").exec());
  for (const PlatformCall& call : platform.calls) EXPECT_EQ(call[1], "/usr/bin/convert");
}

TEST_F(GIFConvert, RunsNothingElseAfterAFailedFirstPass) {
  firstResult = 1;
  OpenGif command(GifRecord(), "/vol/pics/cat.gif", "/v/d.gif");
  EXPECT_EQ(command.coalesceTmpPath_, "");
  EXPECT_EQ(files, Files{});
  EXPECT_FALSE(command.exec());
  EXPECT_EQ(platform.calls, (Calls{FirstPass()}));
  EXPECT_EQ(files, Files{});
}

TEST_F(GIFConvert, LeavesTheCoalescedFileAndNoDestinationAfterAFailedSecondPass) {
  secondResult = 1;
  {
    OpenGif command(GifRecord(), "/vol/pics/cat.gif", "/v/d.gif");
    EXPECT_FALSE(command.exec());
  }
  EXPECT_EQ(files, Files{temporary});
}

TEST_F(GIFConvert, SharesItsTemporaryNameWithAnotherOfTheSameSecondAndFileName) {
  const OpenGif a(GifRecord(), "/one/cat.gif", "/v/a.gif"), b(GifRecord(), "/two/cat.gif", "/v/b.gif");
  EXPECT_EQ(a.coalesceTmpPath_, temporary);
  EXPECT_EQ(b.coalesceTmpPath_, temporary);
}

TEST_F(GIFConvert, EndsTheTemporaryNameWithAPathThatHasNoFolder) {
  const OpenGif command(GifRecord(), "cat.gif", "/v/a.gif");
  EXPECT_EQ(command.coalesceTmpPath_, temporary);
}

}  // namespace
}  // namespace tavithumb::test
