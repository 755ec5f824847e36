// SPDX-License-Identifier: GPL-3.0-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <tavithumb/util.h>

#include <cerrno>

#include "fake_libc.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Calls = std::vector<PlatformCall>;
using Log = std::vector<LogLine>;

TEST(GetFileExt, IsTheLowerCaseTextAfterTheLastDot) {
  const std::pair<std::string, std::string> rows[] = {
      {"/x/Photo.JPG", "jpg"},
      {"/x/archive.tar.GZ", "gz"},
      {"/x/file.", ""},
      {"/x/README", "/x/readme"},
      {"/a.b/c", "b/c"},
      {"/old.d/Read.Me", "me"},
      {"", ""},
      {"NAME", "name"},
      {".hidden", "hidden"},
      {"/x/a.jpg ", "jpg "},
      {"/x/\xC4.J\xC4", "j\xC4"},
  };
  for (const auto& [path, extension] : rows) EXPECT_EQ(file::GetFileExt(path), extension) << path;
}

TEST(GetEAPath, IsThePathFromThePlatform) {
  RecordingPlatform platform;
  CapturedLog log;
  EXPECT_EQ(file::GetEAPath("/v/a.jpg", "NAME"), "/ea/a.jpg/NAME");
  EXPECT_EQ(platform.calls, (Calls{{"TAVIEAPath", "0", "/v/a.jpg", "NAME", "4096", "0"}}));
  EXPECT_EQ(log.lines, Log{});
}

TEST(GetEAPath, MayFillThePlatformsBuffer) {
  const std::string root = "/" + std::string(4095 - std::string("//a.jpg/NAME").size(), 'e');
  RecordingPlatform platform(root);
  CapturedLog log;
  EXPECT_EQ(file::GetEAPath("/v/a.jpg", "NAME"), root + "/a.jpg/NAME");
  EXPECT_EQ(file::GetEAPath("/v/a.jpg", "NAMES"), "");  // one byte too many
  EXPECT_EQ(log.lines, (Log{{LOG_ERR, "util:50 (GetEAPath) \"Get EA path for NAMES failed\""}}));
}

TEST(GetEAPath, IsEmptyAndLoggedWithTheEntrysNameWhenThereIsNone) {
  RecordingPlatform platform;
  platform.hasEAPath = false;
  CapturedLog log;
  EXPECT_EQ(file::GetEAPath("/v/a.jpg", "NAME"), "");
  EXPECT_EQ(log.lines, (Log{{LOG_ERR, "util:50 (GetEAPath) \"Get EA path for NAME failed\""}}));
}

TEST(MakeEADir, DoesNotCreateAnExistingDirectory) {
  const TempDir ea;
  WriteFile(ea / "a.jpg/entry", "");
  RecordingPlatform platform(ea.Path());
  EXPECT_TRUE(file::MakeEADir("/v/a.jpg"));
  EXPECT_EQ(platform.calls, (Calls{{"TAVIEADirPath", "0", "/v/a.jpg", "4096"}}));
}

TEST(MakeEADir, CreatesAMissingDirectoryAndReturnsTheResult) {
  for (const int result : {0, -1}) {
    SCOPED_TRACE(result);
    const TempDir ea;
    RecordingPlatform platform(ea.Path());
    platform.makeEADirResult = result;
    EXPECT_EQ(file::MakeEADir("/v/a.jpg"), result == 0);
    EXPECT_EQ(platform.calls, (Calls{{"TAVIEADirPath", "0", "/v/a.jpg", "4096"}, {"TAVIEAMKDir", "1", ea / "a.jpg"}}));
  }
}

TEST(MakeEADir, RequestsTheDirectoryEvenIfARegularFileIsInItsPlace) {
  for (const int result : {0, 5}) {
    SCOPED_TRACE(result);
    const TempDir ea;
    WriteFile(ea / "a.jpg", "in the way");
    RecordingPlatform platform(ea.Path());
    platform.makeEADirOnDisk = false;
    platform.makeEADirResult = result;
    EXPECT_EQ(file::MakeEADir("/v/a.jpg"), result == 0);
    EXPECT_EQ(platform.Calls("TAVIEAMKDir"), (Calls{{"TAVIEAMKDir", "1", ea / "a.jpg"}}));
  }
}

TEST(MakeEADir, FailsSilentlyWithoutAnEAPath) {
  RecordingPlatform platform;
  platform.hasEAPath = false;
  CapturedLog log;
  EXPECT_FALSE(file::MakeEADir("/v/a.jpg"));
  EXPECT_EQ(platform.calls, (Calls{{"TAVIEADirPath", "0", "/v/a.jpg", "4096"}}));
  EXPECT_EQ(log.lines, Log{});
}

TEST(IsDestSupportEAWrite, RejectsRemoteVolumesImagesAndCodeTwelve) {
  struct Row {
    int type;
    bool writable;
    Calls calls;
  };
  const Row rows[] = {
      {1, true, {{"TAVIGetFSType", "/v", "0"}, {"TAVIFSIsRemoteFS", "1"}, {"TAVIFSIsImageFS", "1"}}},
      {2, false, {{"TAVIGetFSType", "/v", "0"}, {"TAVIFSIsRemoteFS", "2"}}},
      {3, false, {{"TAVIGetFSType", "/v", "0"}, {"TAVIFSIsRemoteFS", "3"}, {"TAVIFSIsImageFS", "3"}}},
      {12, false, {{"TAVIGetFSType", "/v", "0"}, {"TAVIFSIsRemoteFS", "12"}}},
      {0, true, {{"TAVIGetFSType", "/v", "0"}, {"TAVIFSIsRemoteFS", "0"}, {"TAVIFSIsImageFS", "0"}}},
      {-2, true, {{"TAVIGetFSType", "/v", "0"}, {"TAVIFSIsRemoteFS", "-2"}, {"TAVIFSIsImageFS", "-2"}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.type);
    RecordingPlatform platform;
    platform.fsType = row.type;
    CapturedLog log;
    EXPECT_EQ(file::IsDestSupportEAWrite("/v"), row.writable);
    EXPECT_EQ(platform.calls, row.calls);
    EXPECT_EQ(log.lines, Log{});
  }
}

TEST(IsDestSupportEAWrite, TreatsAVolumeThatCannotBeQueriedAsWritableAndLogsIt) {
  RecordingPlatform platform;
  platform.fsType = -1;
  platform.fsTypeErrno = ENOENT;
  CapturedLog log;
  EXPECT_TRUE(file::IsDestSupportEAWrite("/gone"));
  EXPECT_EQ(platform.calls, (Calls{{"TAVIGetFSType", "/gone", "0"}}));
  EXPECT_EQ(log.lines, (Log{{LOG_ERR,
                             "util:97 (IsDestSupportEAWrite) \"failed to statfs /gone, "
                             "reason=[(2)No such file or directory]\""}}));
}

TEST(SDKMoveFile, MovesWithTheSecondOfFifteenWordsSet) {
  RecordingPlatform platform;
  CapturedLog log;
  EXPECT_TRUE(file::SDKMoveFile("/a", "/b"));
  EXPECT_EQ(
      platform.calls,
      (Calls{{"TAVIFileCopy", "/a", "/b", "0", "1", "0", "0", "0", "0", "0", "0", "0", "0", "0", "0", "0", "0", "0"}}));
  EXPECT_EQ(log.lines, Log{});
}

TEST(SDKMoveFile, LogsAFailure) {
  for (const int result : {-1, 1}) {
    SCOPED_TRACE(result);
    RecordingPlatform platform;
    platform.fileCopyResult = result;
    CapturedLog log;
    EXPECT_FALSE(file::SDKMoveFile("/a", "/b"));
    EXPECT_EQ(log.lines, (Log{{LOG_ERR, "util:112 (SDKMoveFile) \"TAVIFileCopy failed\""}}));
  }
}

TEST(Dirname, IsTheParentAsDefinedByPosix) {
  const std::pair<std::string, std::string> rows[] = {
      {"/a/b/c.jpg", "/a/b"}, {"/c.jpg", "/"}, {"c.jpg", "."}, {"", "."}, {"/a/b/", "/a"}, {"/", "/"}, {"a//b", "a"},
  };
  for (const auto& [path, parent] : rows) EXPECT_EQ(file::Dirname(path), parent) << path;
}

TEST(Dirname, WorksOnTheFirst4095BytesOfALongPath) {
  const auto named = [](std::size_t bytes) { return std::string(bytes, 'n'); };
  EXPECT_EQ(file::Dirname("/" + named(4092) + "/x"),
            "/" + named(4092));  // 4095 bytes: complete
  EXPECT_EQ(file::Dirname("/" + named(4093) + "/x"),
            "/");  // 4096: only the folder's slash is left
  EXPECT_EQ(file::Dirname("/" + named(4094) + "/x"), "/");
  EXPECT_EQ(file::Dirname("/d/" + named(4092) + "/x"), "/d");
  EXPECT_EQ(file::Dirname("/d/" + named(5000)), "/d");
}

TEST(GetEATmpPath, AddsProcessAndSecondToTheEAPath) {
  RecordingPlatform platform;
  FakeLibc libc;
  libc.getpid = [] { return 1234; };
  libc.time = [] { return time_t{1700000000}; };
  CapturedLog log;
  EXPECT_EQ(file::GetEATmpPath("/v/a.jpg", "NAME"), "/ea/a.jpg/NAME_1234_1700000000");
  EXPECT_EQ(platform.calls, (Calls{{"TAVIEAPath", "0", "/v/a.jpg", "NAME", "4096", "0"}}));
  EXPECT_EQ(log.lines, Log{});
}

TEST(GetEATmpPath, IsEmptyAndLoggedWithoutAnEAPath) {
  RecordingPlatform platform;
  platform.hasEAPath = false;
  CapturedLog log;
  EXPECT_EQ(file::GetEATmpPath("/v/a.jpg", "NAME"), "");
  EXPECT_EQ(log.lines, (Log{{LOG_ERR, "util:50 (GetEAPath) \"Get EA path for NAME failed\""}}));
}

TEST(GetVarTmpPath, IsMadeOfTagProcessAndSecond) {
  FakeLibc libc;
  libc.getpid = [] { return 1234; };
  libc.time = [] { return time_t{1700000000}; };
  EXPECT_EQ(file::GetVarTmpPath("abc"), "/var/tmp/tavithumb_abc_1234_1700000000");
  EXPECT_EQ(file::GetVarTmpPath(""), "/var/tmp/tavithumb__1234_1700000000");
  EXPECT_FALSE(Exists("/var/tmp/tavithumb_abc_1234_1700000000"));
}

}  // namespace
}  // namespace tavithumb::test
