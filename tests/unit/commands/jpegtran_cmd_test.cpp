// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "../records.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Calls = std::vector<PlatformCall>;

TEST(JpegTranCmd, RotatesByTheSumOfBothRotationsKeepingItsSign) {
  struct Row {
    int rotate, userRotate;
    bool skipRotate;
    const char* degrees;
  };
  const Row rows[] = {
      {3, 1, true, "90"},
      {3, 1, false, "0"},
      {1, 1, false, "180"},
      {0, -1, false, "-90"},
      {0, 5, false, "90"},
      {0, 4, false, "0"},
      {3, 0, true, "0"},
      {0, -5, true, "-90"},
      {2, 3, false, "90"},
      {0, -6, true, "-180"},
      {0, 2147483647, true, "270"},
      {3, 2147483647, false, "-180"},  // wraps around to -2147483646
      {1, 2147483647, false, "0"},     // wraps around to -2147483648, a multiple of four
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.rotate << " " << row.userRotate << " " << row.skipRotate);
    RecordingPlatform platform;
    OpenInfo info = JpegRecord(800, 600, {400, 300});
    info.rotate_ = row.rotate;
    info.userRotate_ = row.userRotate;
    EXPECT_TRUE(JpegTranCmd(info, "/v/a.jpg", "/v/d.jpg", row.skipRotate).exec());
    EXPECT_EQ(platform.calls, (Calls{{"TLIBCExecv", "/usr/bin/jpegtran", "1", "/usr/bin/jpegtran", "-trim", "-rotate",
                                      row.degrees, "-outfile", "/v/d.jpg", "/v/a.jpg"}}));
  }
}

TEST(JpegTranCmd, HasAPipeThatCanBeOverridden) {
  struct Piped : JpegTranCmd {
    using JpegTranCmd::JpegTranCmd;
    std::FILE* popen() override { return stdin; }
  };
  Piped piped(JpegRecord(800, 600, {400, 300}), "/v/a.jpg", "", true);
  EXPECT_EQ(static_cast<JpegTranCmd&>(piped).popen(), stdin);
}

TEST(JpegTranCmd, OmitsTheOutputFileWithoutADestinationAndReturnsAStream) {
  RecordingPlatform platform;
  platform.open = [](const std::string&, const std::vector<std::string>&) { return StreamOf("turned"); };
  OpenInfo info = JpegRecord(800, 600, {400, 300});
  info.userRotate_ = 1;
  JpegTranCmd command(info, "/v/a.jpg", "", true);
  std::FILE* const stream = command.popen();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(
      platform.calls,
      (Calls{{"TLIBCPopenv", "/usr/bin/jpegtran", "r", "/usr/bin/jpegtran", "-trim", "-rotate", "90", "/v/a.jpg"}}));
  EXPECT_EQ(platform.opened, std::vector<std::FILE*>{stream});
  EXPECT_EQ(platform.closed, std::vector<std::FILE*>{});
  std::fclose(stream);
}

TEST(JpegTranCmd, ReturnsANullStreamWhenItCannotBeStarted) {
  RecordingPlatform platform;
  platform.open = [](const std::string&, const std::vector<std::string>&) -> std::FILE* { return nullptr; };
  EXPECT_EQ(JpegTranCmd(JpegRecord(800, 600, {400, 300}), "/v/a.jpg", "", true).popen(), nullptr);
}

TEST(JpegTranCmd, RemovesNothingWhenItFails) {
  const TempDir folder;
  WriteFile(folder / "d.jpg", "partial");
  RecordingPlatform platform;
  platform.run = [](const std::string&, const std::vector<std::string>&) { return 1; };
  EXPECT_FALSE(JpegTranCmd(JpegRecord(800, 600, {400, 300}), "/v/a.jpg", folder / "d.jpg", false).exec());
  EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"d.jpg"}));
}

}  // namespace
}  // namespace tavithumb::test
