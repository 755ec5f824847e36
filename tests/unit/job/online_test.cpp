// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cerrno>

#include "job_fixture.h"

namespace tavithumb::test {
namespace {

// Tools named in `failing` fail, the others write their output. The process is
// root, the time is 7, the process 42.
class Online : public JobTest {
 protected:
  Online() {
    libc.time = [] { return time_t{getpid()}; };
    libc.geteuid = [] { return uid_t{0}; };
    libc.getegid = [] { return gid_t{0}; };
    libc.chown = [](const char*, uid_t, gid_t) { return 0; };
    platform.open = [this](const std::string&, const std::vector<std::string>&) {
      ran.push_back("dcraw");
      return StreamOf(extracted);
    };
    platform.run = [this](const std::string&, const std::vector<std::string>& argv) {
      ran.push_back(ToolOf(argv));
      if (std::count(failing.begin(), failing.end(), ran.back()) != 0) return 1;
      WriteFile(argv[0] == "/usr/bin/djpeg" ? argv[9] : argv.back(), ran.back());
      return 0;
    };
  }

  // The leftovers of a failed second pass over an animation.
  ~Online() override { RealUnlink(("/var/tmp/convert_thumbnail__" + pid + "a.jpg").c_str()); }

  static std::string ToolOf(const std::vector<std::string>& argv) {
    if (argv[0] == "/usr/bin/djpeg") return "djpeg";
    if (argv[2] == "-coalesce") return "coalesce";
    return argv[4] == "-thumbnail" ? "animate" : "convert";
  }

  // Facts of a source of 800 x 600 pixels and plenty of bytes, and a request
  // for the "big" box.
  static void Prepare(OpenThumb* job, const std::string& mimeType = "image/jpeg") {
    SetFacts(job, 800, 600, mimeType);
    SetRequest(job, "big");
    job->Info().stat_.st_size = 10000000;
    job->outputFile_ = "/earlier";
  }

  static PlatformCall DJpeg(const std::string& from, const std::string& to) {
    return {"TLIBCExecv", "/usr/bin/djpeg", "1",        "/usr/bin/djpeg", "-scale",   "1/1", "-dct",
            "fast",       "-fast",          "-onepass", "-bmp",           "-outfile", to,    from};
  }
  static PlatformCall Convert(const std::string& from, const std::string& to) {
    return {"TLIBCExecv",
            "/usr/bin/convert",
            "1",
            "/usr/bin/convert",
            "-strip",
            "-colorspace",
            "sRGB",
            from + "[0]",
            "-thumbnail",
            "640x600",
            "-rotate",
            "0",
            "-rotate",
            "0",
            to};
  }

  const std::string source = Source("a.jpg");
  const std::string pid = std::to_string(getpid());
  std::string extracted;
  Listing failing;
  Listing ran;
};

// How many bytes djpeg writes for 800 x 600 pixels at 1/1.
constexpr off_t decodedBytes = 800 * 600 * 3 + 54;

TEST_F(Online, DeclinesWithoutTouchingAnythingWhenNoConversionIsNeeded) {
  OpenThumb job(source, 0, false);
  Prepare(&job);
  job.Info().width_ = 640;
  job.type_ = 0;
  EXPECT_FALSE(job.SetOutOnline());
  EXPECT_EQ(job.GetOutputType(), "Original");
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(platform.calls, Calls{});
  EXPECT_EQ(Names(folder.Path()), Listing{"a.jpg"});
}

TEST_F(Online, DecodesAJpegIntoTheEADirectoryUnderTheTemporaryNameAndStoresIt) {
  OpenThumb job(source, 0, false);
  Prepare(&job);
  EXPECT_TRUE(job.SetOutOnline());
  const std::string work = Entry(source, "TAVIFILETMP_THUMB.jpg"), stored = Entry(source, "TAVIFILE_THUMB_B.jpg");
  EXPECT_EQ(platform.calls, (Calls{{"TAVIGetFSType", folder.Path(), "0"},
                                   {"TAVIFSIsRemoteFS", "1"},
                                   {"TAVIFSIsImageFS", "1"},
                                   EAPath(source, "TAVIFILETMP_THUMB.jpg"),
                                   {"TAVIEADirPath", "0", source, "4096"},
                                   {"TAVIEAMKDir", "1", folder / "ea/a.jpg"},
                                   DJpeg(source, work),
                                   EAPath(source, "TAVIFILE_THUMB_B.jpg")}));
  EXPECT_EQ(job.GetOutputFile(), stored);
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_FALSE(job.IsNeedDelete());
  EXPECT_EQ(Entries(source), Listing{"TAVIFILE_THUMB_B.jpg"});
  EXPECT_EQ(ModificationTime(stored), 1000);
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Online, ServesAJpegUnchangedUpToTheBytesOfItsDecode) {
  for (const auto& [bytes, serves] :
       {std::pair{decodedBytes - 1, true}, {decodedBytes, true}, {decodedBytes + 1, false}}) {
    SCOPED_TRACE(bytes);
    ran.clear();
    OpenThumb job(source, 0, false);
    Prepare(&job);
    job.Info().stat_.st_size = bytes;
    EXPECT_EQ(job.SetOutOnline(), !serves);
    EXPECT_EQ(job.GetOutputType(), serves ? "Original" : "Brovix");
    EXPECT_EQ(job.GetOutputFile(), serves ? "/earlier" : Entry(source, "TAVIFILE_THUMB_B.jpg"));
    EXPECT_EQ(ran, serves ? Listing{} : Listing{"djpeg"});
  }
}

TEST_F(Online, LetsTheDecodingCommandDecideOnDeletingTheAnswer) {
  OpenThumb job(source, 0, false);
  Prepare(&job);
  job.Info().stat_.st_size = decodedBytes + 524287;
  EXPECT_TRUE(job.SetOutOnline());
  EXPECT_TRUE(job.IsNeedDelete());
  job.Info().stat_.st_size = decodedBytes + 524288;
  EXPECT_TRUE(job.SetOutOnline());
  EXPECT_FALSE(job.IsNeedDelete());
  job.needDelete_ = true;
  failing = {"djpeg"};  // only a successful decode is checked
  EXPECT_TRUE(job.SetOutOnline());
  EXPECT_TRUE(job.IsNeedDelete());
}

TEST_F(Online, TriesTheToolsInOrder) {
  struct Row {
    const char* what;
    const char* mimeType;
    bool good;
    int options;
    Listing failing;
    std::string extracted;
    Listing ran;
    bool made;
  };
  const std::string preview = "preview";
  const Row rows[] = {
      {"JPEG", "image/jpeg", true, 0, {}, "", {"djpeg"}, true},
      {"JPEG that djpeg can't read", "image/jpeg", true, 0, {"djpeg"}, "", {"djpeg", "convert"}, true},
      {"JPEG that no tool can read", "image/jpeg", true, 0, {"djpeg", "convert"}, "", {"djpeg", "convert"}, false},
      {"PNG", "image/png", true, 0, {}, "", {"convert"}, true},
      {"BMP", "image/x-ms-bmp", true, 0, {}, "", {"convert"}, true},
      {"GIF made still", "image/gif", true, 0, {}, "", {"convert"}, true},
      {"GIF kept moving", "image/gif", true, 8, {}, "", {"coalesce", "animate"}, true},
      {"GIF for an avatar", "image/gif", true, 8 | 32, {}, "", {"convert"}, true},
      {"GIF whose first pass fails", "image/gif", true, 8, {"coalesce"}, "", {"coalesce", "convert"}, true},
      {"GIF whose second pass fails", "image/gif", true, 8, {"animate"}, "", {"coalesce", "animate", "convert"}, true},
      // Its result is only used if it is a readable picture, which these
      // texts are not.
      {"raw with a preview", "image/x-nikon-nef", true, 0, {}, preview, {"dcraw", "djpeg", "convert"}, true},
      {"raw without a preview", "image/x-nikon-nef", true, 0, {}, "", {"dcraw", "convert"}, true},
      {"raw that nothing can read", "image/x-nikon-nef", true, 0, {"convert"}, "", {"dcraw", "convert"}, false},
      {"TIFF", "image/tiff", true, 0, {}, "", {"dcraw", "convert"}, true},
      {"unknown type", "", false, 0, {}, "", {"dcraw"}, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ran.clear();
    failing = row.failing;
    extracted = row.extracted;
    OpenThumb job(source, row.options, false);
    Prepare(&job, row.mimeType);
    job.Info().good_ = row.good;
    job.type_ = 0;
    const bool made = job.SetOutOnline();
    EXPECT_EQ(ran, row.ran);
    EXPECT_EQ(made, row.made);
    EXPECT_EQ(job.GetOutputType(), row.made ? "Brovix" : "");
    EXPECT_EQ(job.GetOutputFile().empty(), !row.made);
  }
}

TEST_F(Online, PassesConvertTheSameWorkPathAfterAFailedDecode) {
  failing = {"djpeg"};
  OpenThumb job(source, 0, false);
  Prepare(&job);
  EXPECT_TRUE(job.SetOutOnline());
  const std::string work = Entry(source, "TAVIFILETMP_THUMB.jpg");
  EXPECT_EQ(platform.Calls("TLIBCExecv"), (Calls{DJpeg(source, work), Convert(source, work)}));
}

TEST_F(Online, MakesNothingFromASourceWithoutFactsThatBrowsersCanShow) {
  OpenThumb job(source, 0, false);
  Prepare(&job);
  job.Info().good_ = false;
  EXPECT_FALSE(job.SetOutOnline());
  EXPECT_EQ(ran, Listing{});
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(job.type_, 0);
}

TEST_F(Online, LeavesTheThumbnailInVarTmpOnVolumesThatCannotStoreIt) {
  for (const int type : {2, 3, 12}) {
    SCOPED_TRACE(type);
    platform.fsType = type;
    platform.calls.clear();
    OpenThumb job(source, 0, false);
    Prepare(&job);
    EXPECT_TRUE(job.SetOutOnline());
    const std::string made = "/var/tmp/tavithumb_TAVIFILETMP_THUMB.jpg_" + pid + "_" + pid;
    EXPECT_EQ(job.GetOutputFile(), made);
    EXPECT_EQ(job.GetOutputType(), "BrovixVarTmp");
    EXPECT_EQ(platform.Calls("TLIBCExecv"), (Calls{DJpeg(source, made)}));
    EXPECT_EQ(platform.Calls("TAVIEADirPath"), Calls{});
    EXPECT_EQ(Names(folder.Path()), Listing{"a.jpg"});
    EXPECT_EQ(ReadFile(made), "djpeg");
    RealUnlink(made.c_str());
  }
}

TEST_F(Online, StoresOnAVolumeThatCannotBeQueried) {
  platform.fsType = -1;
  platform.fsTypeErrno = EIO;
  OpenThumb job(source, 0, false);
  Prepare(&job);
  EXPECT_TRUE(job.SetOutOnline());
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(log.lines, (Log{{LOG_ERR, "util:97 (IsDestSupportEAWrite) \"failed to statfs " + folder.Path() +
                                          ", reason=[(5)Input/output error]\""}}));
}

TEST_F(Online, LeavesTypeAndOutputUnchangedWithoutAnEADirectory) {
  platform.makeEADirResult = -1;
  OpenThumb job(source, 0, false);
  Prepare(&job);
  job.type_ = 4;
  EXPECT_FALSE(job.SetOutOnline());
  EXPECT_EQ(job.type_, 4);
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(ran, Listing{});
}

TEST_F(Online, FailsWhenTheThumbnailCannotBeSaved) {
  libc.rename = [](const char*, const char*) { return errno = EIO, -1; };
  OpenThumb job(source, 0, false);
  Prepare(&job);
  EXPECT_FALSE(job.SetOutOnline());
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(Entries(source), Listing{"TAVIFILETMP_THUMB.jpg"});
}

TEST_F(Online, LeavesAFailedCommandsWorkFile) {
  platform.run = [](const std::string&, const std::vector<std::string>& argv) {
    if (argv[0] == "/usr/bin/djpeg") WriteFile(argv[9], "partial");
    return 1;
  };
  OpenThumb job(source, 0, false);
  Prepare(&job);
  libc.unlink = [](const char*) { return 0; };  // what convert would remove
  EXPECT_FALSE(job.SetOutOnline());
  EXPECT_EQ(Entries(source), Listing{"TAVIFILETMP_THUMB.jpg"});
}

TEST_F(Online, StoresAvatarsUnderTheirName) {
  OpenThumb job(source, Thumb::OPT_AVATAR, false);
  Prepare(&job);
  EXPECT_TRUE(job.SetOutOnline());
  EXPECT_EQ(job.GetOutputFile(), Entry(source, "TAVIAVATAR_640x600.jpg"));
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(Entries(source), Listing{"TAVIAVATAR_640x600.jpg"});
}

}  // namespace
}  // namespace tavithumb::test
