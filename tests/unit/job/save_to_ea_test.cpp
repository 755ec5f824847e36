// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "job_fixture.h"
#include "pictures.h"

namespace tavithumb::test {
namespace {

// A process that is root already, so that the guard switches nothing; owner and
// time of files are only recorded.
class SaveToEA : public JobTest {
 protected:
  SaveToEA() : source(Source("a.jpg")), from(folder / "made"), to(folder / "stored"), job(source, 0, false) {
    WriteFile(from, "thumbnail");
    libc.geteuid = [] { return uid_t{0}; };
    libc.getegid = [] { return gid_t{0}; };
    libc.chown = [this](const char* path, uid_t user, gid_t group) {
      steps.push_back("chown " + std::string(path) + " " + std::to_string(user) + ":" + std::to_string(group));
      return Result(chownErrno);
    };
    libc.utime = [this](const char* path, const utimbuf* times) {
      steps.push_back("utime " + std::string(path) + " " + std::to_string(times->actime) + " " +
                      std::to_string(times->modtime));
      return Result(utimeErrno);
    };
  }

  static int Result(int error) { return error == 0 ? 0 : (errno = error, -1); }
  Log Saving(int line, const std::string& message) const { return {Logged(line, "SaveThumbToEA", message)}; }

  const std::string source, from, to;
  int chownErrno = 0;
  int utimeErrno = 0;
  Listing steps;
  OpenThumb job;
};

TEST_F(SaveToEA, MovesTheFileAndSetsModeOwnerAndTheRequestedTime) {
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(Names(folder.Path()), (Listing{"a.jpg", "stored"}));
  struct stat record = {};
  ASSERT_EQ(stat(to.c_str(), &record), 0);
  EXPECT_EQ(record.st_mode & 07777, 0777u);
  EXPECT_EQ(steps, (Listing{"chown " + to + " 0:0", "utime " + to + " 0 1234"}));
  EXPECT_EQ(platform.calls, Calls{});
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(SaveToEA, UsesTheSourcesTimeForATimeOfZero) {
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 0));
  EXPECT_EQ(steps, (Listing{"chown " + to + " 0:0", "utime " + to + " 0 1000"}));
}

TEST_F(SaveToEA, UsesTheTimeOfASourceOfMoreThanTwoGiB) {
  if (truncate64(source.c_str(), off64_t{5} << 30) != 0) GTEST_SKIP() << "needs sparse files of 5 GiB";
  const utimbuf times{900, 1000};
  RealUtime(source.c_str(), &times);
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 0));
  EXPECT_EQ(steps, (Listing{"chown " + to + " 0:0", "utime " + to + " 0 1000"}));
}

TEST_F(SaveToEA, DoesNotSetTheTimeWhenTheSourcesIsZero) {
  const utimbuf epoch{0, 0};
  RealUtime(source.c_str(), &epoch);
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 0));
  EXPECT_EQ(steps, Listing{"chown " + to + " 0:0"});
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(SaveToEA, DoesNotSetTheTimeWhenTheSourceIsGone) {
  RealUnlink(source.c_str());
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 0));
  EXPECT_EQ(steps, Listing{"chown " + to + " 0:0"});
  EXPECT_EQ(log.lines, Saving(501, "Failed to get mime '" + source + "'"));
  EXPECT_TRUE(Exists(to));
}

TEST_F(SaveToEA, FailsOnAMissingFileAndDoesNothingElse) {
  RealUnlink(from.c_str());
  EXPECT_FALSE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(log.lines, Saving(468, "Can not acess thumbnail '" + from + "'\\n"));
  EXPECT_EQ(steps, Listing{});
  EXPECT_EQ(platform.calls, Calls{});
  EXPECT_EQ(Names(folder.Path()), Listing{"a.jpg"});
}

TEST_F(SaveToEA, FailsWhenTheFileCannotBeRenamed) {
  libc.rename = [](const char*, const char*) { return errno = EACCES, -1; };
  EXPECT_FALSE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(log.lines, Saving(474, "Failed to move thumbnail file from '" + from + "' to '" + to + "'"));
  EXPECT_EQ(steps, Listing{});
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(SaveToEA, MovesAcrossVolumesWithMvAndContinuesAsAfterARename) {
  libc.rename = [](const char*, const char*) { return errno = EXDEV, -1; };
  platform.run = [](const std::string&, const std::vector<std::string>& argv) {
    return RealRename(argv[1].c_str(), argv[2].c_str());
  };
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(platform.calls, (Calls{{"TLIBCExecl", "0", "/bin/mv", from, to}}));
  EXPECT_EQ(steps, (Listing{"chown " + to + " 0:0", "utime " + to + " 0 1234"}));
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(SaveToEA, FailsWhenMvFails) {
  libc.rename = [](const char*, const char*) { return errno = EXDEV, -1; };
  platform.run = [](const std::string&, const std::vector<std::string>&) { return 1; };
  EXPECT_FALSE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(log.lines, Saving(479, "Failed to move thumbnail file from '" + from + "' to '" + to + "'"));
  EXPECT_EQ(steps, Listing{});
}

TEST_F(SaveToEA, LeavesNothingOfAThumbnailThatMvCouldNotFinish) {
  libc.rename = [](const char*, const char*) { return errno = EXDEV, -1; };
  platform.run = [](const std::string&, const std::vector<std::string>& argv) {
    WriteFile(argv[2], "half");
    return 1;
  };
  for (const bool hasOlder : {false, true}) {
    SCOPED_TRACE(hasOlder);
    if (hasOlder) {
      WriteFile(to, "older");
      SetTimes(to, 0, 1);
    }
    EXPECT_FALSE(job.SaveThumbToEA(from, to, 1234));
    EXPECT_FALSE(Exists(to));
    EXPECT_TRUE(Exists(from));
  }
}

TEST_F(SaveToEA, KeepsAnOlderThumbnailThatMvDidNotTouch) {
  WriteFile(to, "older");
  libc.rename = [](const char*, const char*) { return errno = EXDEV, -1; };
  platform.run = [](const std::string&, const std::vector<std::string>&) { return 1; };
  EXPECT_FALSE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(ReadFile(to), "older");
}

TEST_F(SaveToEA, ContinuesWhenTheModeCannotBeSet) {
  libc.chmod = [this](const char* path, mode_t mode) {
    EXPECT_EQ(path, to);
    EXPECT_EQ(mode, 0777u);
    return errno = EPERM, -1;
  };
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(log.lines, Saving(485, "Failed to chmod '" + to + "'"));
  EXPECT_EQ(steps.size(), 2u);
}

TEST_F(SaveToEA, ContinuesWhenTheOwnerCannotBeSet) {
  chownErrno = EPERM;
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(log.lines, Saving(491, "Failed to chown '" + to + "', Operation not permitted"));
  EXPECT_EQ(steps.size(), 2u);
}

TEST_F(SaveToEA, ReportsATimeThatCannotBeSetWithTheChownMessage) {
  utimeErrno = EROFS;
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_EQ(log.lines, Saving(512, "Failed to chown '" + to + "', Read-only file system"));
}

TEST_F(SaveToEA, SkipsOwnerAndTimeWhenItCannotBecomeRoot) {
  libc.geteuid = [] { return uid_t{1000}; };
  libc.setresuid = [](uid_t, uid_t, uid_t) { return errno = EPERM, -1; };
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 1234));
  EXPECT_TRUE(Exists(to));
  EXPECT_EQ(steps, Listing{});
  EXPECT_EQ(log.lines, (Log{{LOG_AUTH | LOG_ERR, "libtavithumb:489 ERROR: IF_RUN_AS2(\"root\")"},
                            {LOG_AUTH | LOG_ERR, "libtavithumb:510 ERROR: IF_RUN_AS2(\"root\")"}}));
}

TEST_F(SaveToEA, SetsOwnerAndTimeAsRootAndTheModeAsTheCaller) {
  uid_t user = 1000;
  gid_t group = 100;
  libc.geteuid = [&] { return user; };
  libc.getegid = [&] { return group; };
  libc.setresuid = [&](uid_t, uid_t effective, uid_t) { return user = effective, 0; };
  libc.setresgid = [&](gid_t, gid_t effective, gid_t) { return group = effective, 0; };
  Listing ids;
  const auto note = [&](const std::string& what) {
    ids.push_back(what + " as " + std::to_string(user) + ":" + std::to_string(group));
    return 0;
  };
  libc.chmod = [&](const char*, mode_t) { return note("chmod"); };
  libc.chown = [&](const char*, uid_t, gid_t) { return note("chown"); };
  libc.utime = [&](const char*, const utimbuf*) { return note("utime"); };
  EXPECT_TRUE(job.SaveThumbToEA(from, to, 1234));
  note("afterwards");
  EXPECT_EQ(ids, (Listing{"chmod as 1000:100", "chown as 0:0", "utime as 0:0", "afterwards as 1000:100"}));
}

TEST_F(SaveToEA, StoresToTheBrovixOrTheAvatarName) {
  SetFacts(&job, 4000, 3000);
  SetRequest(&job, "big");
  EXPECT_EQ(job.GetOnlineOutputDest(), Entry(source, "TAVIFILE_THUMB_B.jpg"));
  job.avatar_ = true;
  EXPECT_EQ(job.GetOnlineOutputDest(), Entry(source, "TAVIAVATAR_640x640.jpg"));
  platform.hasEAPath = false;
  EXPECT_EQ(job.GetOnlineOutputDest(), "");
}

TEST_F(SaveToEA, MakesTheDestinationTheOutputFileOfANewThumbnail) {
  SetFacts(&job, 4000, 3000);
  SetRequest(&job, "big");
  Store(source, "other", 1);
  EXPECT_TRUE(job.SaveTmpThumbToEA(from));
  EXPECT_EQ(job.GetOutputFile(), Entry(source, "TAVIFILE_THUMB_B.jpg"));
  EXPECT_EQ(Entries(source), (Listing{"TAVIFILE_THUMB_B.jpg", "other"}));
  EXPECT_EQ(steps.back(), "utime " + job.GetOutputFile() + " 0 1000");
  EXPECT_FALSE(job.SaveTmpThumbToEA(from));
  EXPECT_EQ(job.GetOutputFile(), Entry(source, "TAVIFILE_THUMB_B.jpg"));
}

class SaveExisting : public SaveToEA {
 protected:
  SaveExisting() { MakeJpeg(photo = folder / "photo.jpg", 200, 150); }

  Log Existing(int line, const std::string& message) const { return {Logged(line, "SaveExistingThumbsToEA", message)}; }
  std::string Thumbnail(const std::string& name) {
    MakeJpeg(folder / name, 20, 15);
    return folder / name;
  }

  std::string photo;
};

TEST_F(SaveExisting, StoresEachUnderTheNameOfItsSize) {
  const std::string small = Thumbnail("s.jpg"), big = Thumbnail("b.jpg");
  OpenThumb existing(photo, 0, false);
  EXPECT_TRUE(existing.SaveExistingThumbsToEA({{"small", small}, {"big", big}}, 77, true));
  EXPECT_EQ(Entries(photo), (Listing{"TAVIFILE_THUMB_B.jpg", "TAVIFILE_THUMB_S.jpg"}));
  EXPECT_EQ(existing.info_.GetSize(), "big");
  EXPECT_EQ(existing.info_.GetDimension(), (ThumbDimension{640, 640}));
  EXPECT_EQ(steps, (Listing{"chown " + Entry(photo, "TAVIFILE_THUMB_S.jpg") + " 0:0",
                            "utime " + Entry(photo, "TAVIFILE_THUMB_S.jpg") + " 0 77",
                            "chown " + Entry(photo, "TAVIFILE_THUMB_B.jpg") + " 0:0",
                            "utime " + Entry(photo, "TAVIFILE_THUMB_B.jpg") + " 0 77"}));
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(SaveExisting, StoresAvatarsUnderTheirName) {
  const std::string small = Thumbnail("s.jpg");
  OpenThumb existing(photo, Thumb::OPT_AVATAR, false);
  EXPECT_TRUE(existing.SaveExistingThumbsToEA({{"small", small}}, 77, false));
  EXPECT_EQ(Entries(photo), Listing{"TAVIAVATAR_120x120.jpg"});
}

TEST_F(SaveExisting, CreatesTheEADirectoryEvenForAnEmptyList) {
  OpenThumb existing(photo, 0, false);
  EXPECT_TRUE(existing.SaveExistingThumbsToEA({}, 0, true));
  EXPECT_EQ(platform.Calls("TAVIEAMKDir"), (Calls{{"TAVIEAMKDir", "1", folder / "ea/photo.jpg"}}));
  EXPECT_TRUE(Exists(folder / "ea/photo.jpg"));
}

TEST_F(SaveExisting, FailsWithoutAnEADirectory) {
  const std::string small = Thumbnail("s.jpg");
  platform.makeEADirResult = -1;
  OpenThumb existing(photo, 0, false);
  EXPECT_FALSE(existing.SaveExistingThumbsToEA({{"small", small}}, 0, true));
  EXPECT_EQ(log.lines, Existing(542, "Failed to create eadir '" + photo + "'"));
  EXPECT_TRUE(Exists(small));
}

TEST_F(SaveExisting, StoresTheValidOnesAmongInvalidOnes) {
  const std::string small = Thumbnail("s.jpg"), big = Thumbnail("b.jpg"), gone = folder / "gone.jpg";
  MakePng(folder / "other.jpg", 20, 15);
  WriteFile(folder / "text.jpg", std::string(100, 'x'));
  OpenThumb existing(photo, 0, false);
  EXPECT_FALSE(existing.SaveExistingThumbsToEA({{"small", small},
                                                {"medium", folder / "other.jpg"},
                                                {"medium", folder / "text.jpg"},
                                                {"medium", gone},
                                                {"big", big}},
                                               77, true));
  EXPECT_EQ(Entries(photo), (Listing{"TAVIFILE_THUMB_B.jpg", "TAVIFILE_THUMB_S.jpg"}));
  EXPECT_TRUE(Exists(folder / "other.jpg"));
  EXPECT_EQ(log.lines, (Log{Existing(558, "Thumbnail has different mime type '" + (folder / "other.jpg") + "'")[0],
                            Existing(563, "Can not check thumbnail info of '" + (folder / "text.jpg") + "'")[0],
                            Existing(563, "Can not check thumbnail info of '" + gone + "'")[0]}));
}

TEST_F(SaveExisting, DoesNotCheckTheTypeUnlessRequested) {
  WriteFile(folder / "text.jpg", "no picture");
  OpenThumb existing(photo, 0, false);
  EXPECT_TRUE(existing.SaveExistingThumbsToEA({{"small", folder / "text.jpg"}}, 77, false));
  EXPECT_EQ(Entries(photo), Listing{"TAVIFILE_THUMB_S.jpg"});
}

TEST_F(SaveExisting, ReportsAFileThatCannotBeMoved) {
  const std::string gone = folder / "gone.jpg";
  OpenThumb existing(photo, 0, false);
  EXPECT_FALSE(existing.SaveExistingThumbsToEA({{"small", gone}}, 77, false));
  EXPECT_EQ(log.lines, Saving(468, "Can not acess thumbnail '" + gone + "'\\n"));
}

TEST_F(SaveExisting, ThrowsOnAnUnknownSizeAfterStoringTheEarlierOnes) {
  const std::string small = Thumbnail("s.jpg"), big = Thumbnail("b.jpg");
  OpenThumb existing(photo, 0, false);
  try {
    existing.SaveExistingThumbsToEA({{"small", small}, {"huge", big}}, 77, false);
    FAIL();
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "map::at");
  }
  EXPECT_EQ(Entries(photo), Listing{"TAVIFILE_THUMB_S.jpg"});
  EXPECT_EQ(existing.info_.GetSize(), "huge");
  EXPECT_TRUE(Exists(big));
}

TEST_F(SaveExisting, ThrowsOnASourceThatIsDamagedOrGone) {
  WriteFile(folder / "short.jpg", "");
  OpenThumb damaged(folder / "short.jpg", 0, false), gone(photo, 0, false);
  RealUnlink(photo.c_str());
  const std::pair<OpenThumb*, int> rows[] = {{&damaged, 601}, {&gone, 603}};
  for (const auto& [existing, code] : rows) {
    SCOPED_TRACE(code);
    log.lines.clear();
    try {
      existing->SaveExistingThumbsToEA({}, 77, false);
      FAIL();
    } catch (const Error& error) {
      EXPECT_EQ(error.Code(), code);
    }
    EXPECT_EQ(log.lines.back(), Existing(536, "Failed to extrace img info '" + existing->srcPath_ + "'")[0]);
    EXPECT_EQ(platform.calls, Calls{});
  }
}

TEST_F(SaveExisting, ContinuesWithoutFactsForAnUnknownType) {
  WriteFile(folder / "text.jpg", std::string(100, 'x'));
  const std::string small = Thumbnail("s.jpg");
  OpenThumb existing(folder / "text.jpg", 0, false);
  EXPECT_TRUE(existing.SaveExistingThumbsToEA({{"small", small}}, 77, true));
  EXPECT_EQ(Entries(folder / "text.jpg"), Listing{"TAVIFILE_THUMB_S.jpg"});
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(SaveExisting, ReadsNoFactsForAVideo) {
  const std::string small = Thumbnail("s.jpg");
  const std::string video = Source("clip.mp4");
  OpenThumb existing(video, 0, false);
  EXPECT_TRUE(existing.SaveExistingThumbsToEA({{"small", small}}, 77, true));
  EXPECT_EQ(Entries(video), Listing{"TAVIFILE_THUMB_S.jpg"});
  EXPECT_FALSE(existing.info_.IsGood());
}

TEST_F(SaveExisting, ReadsTheSourcesFactsWithItsPreviewAndTheFilesFactsWithout) {
  const std::string small = Thumbnail("s.jpg"), preview = Thumbnail("p.jpg");
  SetPreview(photo, preview);
  SetPreview(small, preview);
  const Listing before = OwnTemporaryFiles();
  {
    OpenThumb existing(photo, 0, false);
    EXPECT_TRUE(existing.SaveExistingThumbsToEA({{"small", small}}, 77, true));
    EXPECT_NE(existing.info_.GetEXIFPreviewTmpPath(), "");
    EXPECT_EQ(OwnTemporaryFiles().size(), before.size() + 1);
  }
  EXPECT_EQ(OwnTemporaryFiles(), before);
}

}  // namespace
}  // namespace tavithumb::test
