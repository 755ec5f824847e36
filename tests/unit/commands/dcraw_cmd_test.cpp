// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "../records.h"
#include "fake_libc.h"
#include "pictures.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Calls = std::vector<PlatformCall>;
using Listing = std::vector<std::string>;

struct OpenDcraw : OpenCommand<DcrawCmd> {
  using DcrawCmd::dcrawPipe_;
  using DcrawCmd::rawThumbFile_;
  using DcrawCmd::rawThumbPath_;
  using OpenCommand<DcrawCmd>::OpenCommand;
};

// A record of a raw file whose size is not known.
OpenInfo RawRecord() {
  OpenInfo info = JpegRecord(0, 0, {100, 100});
  info.mimeType_ = "image/x-nikon-nef";
  return info;
}

// The EA directory of /v/a.nef is a real one, the time is 7 and the process 42:
// the extracted preview is <ea>/a.nef/d.jpg_42_7.
class Dcraw : public testing::Test {
 protected:
  Dcraw() {
    MakeJpeg(folder / "preview.jpg", 300, 200);
    preview = ReadFile(folder / "preview.jpg");
    RealUnlink((folder / "preview.jpg").c_str());
    WriteFile(dest, "");
    RealUnlink(dest.c_str());
    libc.time = [] { return time_t{7}; };
    libc.getpid = [] { return 42; };
    platform.open = [this](const std::string&, const std::vector<std::string>&) { return StreamOf(preview); };
    platform.run = [this](const std::string& path, const std::vector<std::string>& argv) {
      const int result = path == "/usr/bin/djpeg" ? djpegResult : convertResult;
      if (result == 0) WriteFile(path == "/usr/bin/djpeg" ? argv[9] : argv.back(), preview);
      return result;
    };
  }

  PlatformCall Start() const {
    return {"TLIBCPopenv", "/usr/bin/dcraw", "r", "/usr/bin/dcraw", "-6", "-w", "-c", "-e", "/v/a.nef"};
  }
  PlatformCall EAPath() const { return {"TAVIEAPath", "0", "/v/a.nef", "d.jpg", "4096", "0"}; }
  PlatformCall DJpeg(const std::string& scale) const {
    return {"TLIBCExecv", "/usr/bin/djpeg", "1",        "/usr/bin/djpeg", "-scale",   scale, "-dct",
            "fast",       "-fast",          "-onepass", "-bmp",           "-outfile", dest,  rawThumb};
  }
  PlatformCall Convert(const std::string& geometry) const {
    return {"TLIBCExecv", "/usr/bin/convert",
            "1",          "/usr/bin/convert",
            "-strip",     "-colorspace",
            "sRGB",       rawThumb + "[0]",
            "-thumbnail", geometry,
            "-rotate",    "0",
            "-rotate",    "0",
            dest};
  }
  // The same picture with an orientation that is not a number.
  std::string WithOddOrientation(const std::string& picture) const {
    const TempDir apart;
    WriteFile(apart / "odd.jpg", picture);
    SetExif(apart / "odd.jpg", {{"Exif.Image.Orientation", "odd"}});
    return ReadFile(apart / "odd.jpg");
  }
  Listing Entries() const { return Names(folder / "a.nef"); }

  const TempDir folder;
  const std::string dest = folder / "a.nef/d.jpg";
  const std::string rawThumb = folder / "a.nef/d.jpg_42_7";
  std::string preview;
  int djpegResult = 0;
  int convertResult = 0;
  RecordingPlatform platform{folder.Path()};
  FakeLibc libc;
};

TEST_F(Dcraw, ExtractsThePreviewInTheConstructorAndMeasuresIt) {
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  EXPECT_EQ(platform.calls, (Calls{EAPath(), Start()}));
  EXPECT_EQ(command.rawThumbPath_, rawThumb);
  EXPECT_EQ(ReadFile(rawThumb),
            preview);  // complete although both handles are open
  EXPECT_NE(command.dcrawPipe_, nullptr);
  EXPECT_NE(command.rawThumbFile_, nullptr);
  EXPECT_EQ(command.info_.GetWidth(), 300u);
  EXPECT_EQ(command.info_.GetHeight(), 200u);
}

TEST_F(Dcraw, DoesNotMeasureAPreviewWhenTheRecordHasASize) {
  OpenInfo info = RawRecord();
  info.width_ = 6000;
  info.height_ = 4000;
  preview = "no picture";
  OpenDcraw command(info, "/v/a.nef", dest);
  EXPECT_EQ(command.rawThumbPath_, rawThumb);
  EXPECT_EQ(command.info_.GetWidth(), 6000u);
  EXPECT_EQ(command.info_.GetHeight(), 4000u);
}

TEST_F(Dcraw, ScalesThePreviewWithDJpegAndRemovesIt) {
  EXPECT_TRUE(DcrawCmd(RawRecord(), "/v/a.nef", dest).exec());
  EXPECT_EQ(platform.Calls("TLIBCExecv"), (Calls{DJpeg("1/2")}));
  EXPECT_EQ(Entries(), Listing{"d.jpg"});
}

TEST_F(Dcraw, ScalesThePreviewWithConvertWhenDJpegFails) {
  djpegResult = 1;
  EXPECT_TRUE(DcrawCmd(RawRecord(), "/v/a.nef", dest).exec());
  EXPECT_EQ(platform.Calls("TLIBCExecv"), (Calls{DJpeg("1/2"), Convert("100x100")}));
  EXPECT_EQ(Entries(), Listing{"d.jpg"});
}

TEST_F(Dcraw, MovesThePreviewToTheDestinationWhenBothFail) {
  djpegResult = convertResult = 1;
  EXPECT_TRUE(DcrawCmd(RawRecord(), "/v/a.nef", dest).exec());
  EXPECT_EQ(platform.Calls("TLIBCExecv").size(), 2u);
  EXPECT_EQ(Entries(), Listing{"d.jpg"});
  EXPECT_EQ(ReadFile(dest), preview);
}

TEST_F(Dcraw, MovesThePreviewUnscaledWhenTheFactsAreNotGood) {
  OpenInfo info = RawRecord();
  info.good_ = false;
  EXPECT_TRUE(DcrawCmd(info, "/v/a.nef", dest).exec());
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
  EXPECT_EQ(Entries(), Listing{"d.jpg"});
  EXPECT_EQ(ReadFile(dest), preview);
}

TEST_F(Dcraw, RemovesThePreviewWhenItCannotBeMoved) {
  djpegResult = convertResult = 1;
  libc.rename = [](const char*, const char*) { return errno = EIO, -1; };
  EXPECT_FALSE(DcrawCmd(RawRecord(), "/v/a.nef", dest).exec());
  EXPECT_EQ(Entries(), Listing{});
}

TEST_F(Dcraw, FailsOnAResultThatIsNotAPictureAndLeavesIt) {
  OpenInfo info = RawRecord();
  info.good_ = false;
  info.width_ = info.height_ = 10;
  preview = std::string(100, 'x');
  EXPECT_FALSE(DcrawCmd(info, "/v/a.nef", dest).exec());
  EXPECT_EQ(Entries(), Listing{"d.jpg"});
}

TEST_F(Dcraw, FailsOnADJpegResultThatIsNotAPictureAndLeavesIt) {
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  preview = std::string(100, 'x');
  EXPECT_FALSE(command.exec());
  EXPECT_EQ(platform.Calls("TLIBCExecv"), (Calls{DJpeg("1/2")}));
  EXPECT_EQ(Entries(), Listing{"d.jpg"});
}

TEST_F(Dcraw, RunsNoToolWhenThePreviewFileCannotBeCreated) {
  libc.fopen = [this](const char* path, const char* mode) -> std::FILE* {
    EXPECT_EQ(path, rawThumb);
    EXPECT_STREQ(mode, "wb");
    errno = EACCES;
    return nullptr;
  };
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  EXPECT_EQ(command.rawThumbPath_, "");
  EXPECT_FALSE(command.exec());
  EXPECT_EQ(platform.calls, Calls{EAPath()});
}

TEST_F(Dcraw, RunsNoToolWithoutAnEAPath) {
  platform.hasEAPath = false;
  CapturedLog log;
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  EXPECT_EQ(command.rawThumbPath_, "");
  EXPECT_FALSE(command.exec());
  EXPECT_EQ(platform.calls, Calls{EAPath()});
  EXPECT_EQ(log.Texts(), Listing{"util:50 (GetEAPath) \"Get EA path for d.jpg failed\""});
}

TEST_F(Dcraw, LeavesTheEmptyFileWhenDcrawCannotBeStarted) {
  const std::size_t before = Names("/proc/self/fd").size();
  platform.open = [](const std::string&, const std::vector<std::string>&) -> std::FILE* { return nullptr; };
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  EXPECT_EQ(command.rawThumbPath_, "");
  EXPECT_EQ(command.dcrawPipe_, nullptr);
  EXPECT_EQ(command.rawThumbFile_, nullptr);
  EXPECT_FALSE(command.exec());
  EXPECT_EQ(Entries(), Listing{"d.jpg_42_7"});
  EXPECT_EQ(ReadFile(rawThumb), "");
  EXPECT_EQ(Names("/proc/self/fd").size(), before);
}

TEST_F(Dcraw, RemovesTheFileWhenThereIsNoPreview) {
  preview = "";
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  EXPECT_EQ(command.rawThumbPath_, "");
  EXPECT_EQ(command.dcrawPipe_, nullptr);
  EXPECT_EQ(command.rawThumbFile_, nullptr);
  EXPECT_EQ(platform.calls, (Calls{EAPath(), Start(), {"TLIBCPclose"}}));
  EXPECT_FALSE(command.exec());
  EXPECT_EQ(platform.calls.size(), 3u);
  EXPECT_EQ(Entries(), Listing{});
}

TEST_F(Dcraw, RemovesTheFileWhenReadingOrWritingFails) {
  preview += std::string(10000, '\0');
  for (const std::string what : {"read", "second read", "write", "second write", "short write"}) {
    SCOPED_TRACE(what);
    const int failing = what.rfind("second", 0) == 0 ? 2 : 1;
    int reads = 0, writes = 0;
    libc.read = [&](int descriptor, void* data, size_t size) {
      const bool fails = what.find("read") != std::string::npos && ++reads == failing;
      return fails ? (errno = EIO, ssize_t{-1}) : RealRead(descriptor, data, size);
    };
    libc.write = [&](int, const void*, size_t size) {
      const bool fails = what.find("write") != std::string::npos && ++writes == failing;
      if (fails && what != "short write") return errno = ENOSPC, ssize_t{-1};
      return static_cast<ssize_t>(fails ? size - 1 : size);
    };
    const std::size_t before = Names("/proc/self/fd").size();
    OpenDcraw command(RawRecord(), "/v/a.nef", dest);
    libc.read = nullptr;
    libc.write = nullptr;
    EXPECT_EQ(command.rawThumbPath_, "");
    EXPECT_EQ(command.dcrawPipe_, nullptr);
    EXPECT_EQ(command.rawThumbFile_, nullptr);
    EXPECT_EQ(Entries(), Listing{});
    EXPECT_EQ(platform.opened, platform.closed);
    EXPECT_EQ(Names("/proc/self/fd").size(), before);
    EXPECT_FALSE(command.exec());
    EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
  }
}

TEST_F(Dcraw, RetriesAnInterruptedReadOrWrite) {
  int reads = 0, writes = 0;
  libc.read = [&](int descriptor, void* data, size_t size) {
    return ++reads % 2 == 1 ? (errno = EINTR, ssize_t{-1}) : RealRead(descriptor, data, size);
  };
  libc.write = [&](int descriptor, const void* data, size_t size) {
    return ++writes % 2 == 1 ? (errno = EINTR, ssize_t{-1})
                             : pwrite(descriptor, data, size, lseek(descriptor, 0, SEEK_END));
  };
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  libc.read = nullptr;
  libc.write = nullptr;
  EXPECT_EQ(ReadFile(rawThumb), preview);
}

TEST_F(Dcraw, ReadsBlocksOf4096Bytes) {
  preview += std::string(10000, '\0');
  std::vector<size_t> sizes;
  libc.read = [&](int descriptor, void* data, size_t size) {
    sizes.push_back(size);
    return RealRead(descriptor, data, size);
  };
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  libc.read = nullptr;
  EXPECT_EQ(sizes, std::vector<size_t>((preview.size() + 4095) / 4096 + 1, 4096));
}

TEST_F(Dcraw, GivesUpAPreviewThatCannotBeMeasuredAndLeavesIt) {
  const std::string picture = preview;
  const std::pair<std::string, std::size_t> rows[] = {{std::string(100, 'x'), 0},    // of no known type
                                                      {picture.substr(0, 200), 1}};  // damaged, which is logged
  for (const auto& [content, logged] : rows) {
    SCOPED_TRACE(logged);
    CapturedLog log;
    preview = content;
    OpenDcraw command(RawRecord(), "/v/a.nef", dest);
    EXPECT_EQ(log.lines.size(), logged);
    EXPECT_EQ(command.rawThumbPath_, "");
    EXPECT_EQ(command.dcrawPipe_, nullptr);
    EXPECT_EQ(command.rawThumbFile_, nullptr);
    EXPECT_EQ(platform.opened, platform.closed);
    EXPECT_FALSE(command.exec());
    EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
    EXPECT_EQ(Entries(), Listing{"d.jpg_42_7"});
  }
}

TEST_F(Dcraw, MeasuresThePreviewWhenEitherSideIsMissing) {
  for (const auto& [width, height] : {std::pair{0u, 4000u}, {6000u, 0u}}) {
    SCOPED_TRACE(testing::Message() << width << "x" << height);
    OpenInfo info = RawRecord();
    info.width_ = width;
    info.height_ = height;
    OpenDcraw command(info, "/v/a.nef", dest);
    EXPECT_EQ(command.info_.GetWidth(), 300u);
    EXPECT_EQ(command.info_.GetHeight(), 200u);
  }
}

TEST_F(Dcraw, ClosesBothHandlesBeforeAnotherExceptionLeavesTheConstructor) {
  preview = WithOddOrientation(preview);
  const std::size_t before = Names("/proc/self/fd").size();
  EXPECT_THROW(DcrawCmd(RawRecord(), "/v/a.nef", dest), std::invalid_argument);
  EXPECT_EQ(platform.closed.size(), 1u);
  EXPECT_EQ(platform.opened, platform.closed);
  EXPECT_EQ(Names("/proc/self/fd").size(), before);
  EXPECT_EQ(Entries(), Listing{"d.jpg_42_7"});
}

TEST_F(Dcraw, ClosesItsHandlesOnceOnDestructionAndLeavesThePreview) {
  const std::size_t before = Names("/proc/self/fd").size();
  { DcrawCmd command(RawRecord(), "/v/a.nef", dest); }
  EXPECT_EQ(platform.closed, platform.opened);
  EXPECT_EQ(platform.Calls("TLIBCPclose").size(), 1u);
  EXPECT_EQ(Names("/proc/self/fd").size(), before);
  EXPECT_EQ(Entries(), Listing{"d.jpg_42_7"});
}

TEST_F(Dcraw, RejectsADestinationWithoutAWidthOrAHeight) {
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  MakeBmp(dest, 10, 10);
  const std::string bmp = ReadFile(dest);
  EXPECT_TRUE(command.checkTmpExif());
  for (const std::size_t side : {18u, 22u}) {  // where the header has the width and the height
    SCOPED_TRACE(side);
    WriteFile(dest, std::string(bmp).replace(side, 4, 4, '\0'));
    EXPECT_FALSE(command.checkTmpExif());
  }
}

TEST_F(Dcraw, ChecksThatTheDestinationIsAPictureWithASize) {
  CapturedLog log;
  OpenDcraw command(RawRecord(), "/v/a.nef", dest);
  EXPECT_FALSE(command.checkTmpExif());  // does not exist
  WriteFile(dest, preview);
  EXPECT_TRUE(command.checkTmpExif());
  WriteFile(dest, std::string(100, 'x'));
  EXPECT_FALSE(command.checkTmpExif());
  WriteFile(dest, WithOddOrientation(preview));
  EXPECT_FALSE(command.checkTmpExif());  // an exception other than Error
  command.dest_ = "";
  EXPECT_FALSE(command.checkTmpExif());
}

}  // namespace
}  // namespace tavithumb::test
