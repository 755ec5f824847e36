// SPDX-License-Identifier: GPL-3.0-or-later
#include <cerrno>
#include <stdexcept>

#include "job_fixture.h"
#include "pictures.h"

namespace tavithumb::test {
namespace {

// Sources with real facts, and tools that fail unless `toolsWork`.
class Driver : public JobTest {
 protected:
  Driver() {
    libc.geteuid = [] { return uid_t{0}; };
    libc.getegid = [] { return gid_t{0}; };
    libc.chown = [](const char*, uid_t, gid_t) { return 0; };
    platform.run = [this](const std::string&, const std::vector<std::string>& argv) {
      if (!toolsWork) return 1;
      WriteFile(argv[0] == "/usr/bin/djpeg" ? argv[9] : argv.back(), "made");
      return 0;
    };
  }
  std::string Png(const std::string& name = "a.png", int width = 1300, int height = 1300) const {
    MakePng(folder / name, width, height);
    SetTimes(folder / name, 900, 1000);
    return folder / name;
  }
  // The names of the EA entries that were looked up, in order.
  Listing LookedUp() const {
    Listing names;
    for (const PlatformCall& call : platform.Calls("TAVIEAPath")) names.push_back(call[3]);
    return names;
  }

  bool toolsWork = false;
};

TEST_F(Driver, LooksUpTheEntriesSelectedByTheOptionsInAFixedOrder) {
  struct Row {
    const char* source;
    int options;
    Listing lookedUp;
  };
  const std::string png = Png(), video = Source("clip.mp4");
  const Row rows[] = {
      {"image", 0, {"TAVIFILE_THUMB_S.png", "TAVIFILETMP_THUMB.png"}},
      {"image", 1, {"TAVIPHOTO_THUMB_S.png", "TAVIPHOTO:THUMB_S.png", "TAVIFILE_THUMB_S.png", "TAVIFILETMP_THUMB.png"}},
      {"image", 2, {"TAVIFILE_THUMB_S.png", "TAVIFILE_THUMB_S.png", "TAVIFILETMP_THUMB.png"}},
      {"image",
       3,
       {"TAVIPHOTO_THUMB_S.png", "TAVIPHOTO:THUMB_S.png", "TAVIFILE_THUMB_S.png", "TAVIFILE_THUMB_S.png",
        "TAVIFILETMP_THUMB.png"}},
      {"image", 4, {"TAVIFILE_THUMB_S.png"}},
      {"image", 0x23, {"TAVIAVATAR_120x120.png", "TAVIFILE_THUMB_S.png", "TAVIFILETMP_THUMB.png"}},
      {"video", 0, {"TAVIVIDEO_VIDEO_SCREENSHOT.jpg"}},
      {"video",
       3,
       {"TAVIPHOTO_THUMB_S.jpg", "TAVIPHOTO:THUMB_S.jpg", "TAVIFILE_THUMB_S.jpg", "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"}},
      {"video", 0x20, {"TAVIVIDEO_VIDEO_SCREENSHOT.jpg", "TAVIAVATAR_120x120.jpg"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.source << " " << row.options);
    platform.calls.clear();
    OpenThumb job(row.source == std::string("image") ? png : video, row.options, false);
    EXPECT_EQ(job.CalcOutputFile("small"), "");
    EXPECT_EQ(LookedUp(), row.lookedUp);
    EXPECT_EQ(job.GetOutputType(), "");
  }
}

TEST_F(Driver, CallsThePlatformOnlyAsNeeded) {
  const std::string png = Png(), video = Source("clip.mp4");
  OpenThumb image(png, 3, false);
  EXPECT_EQ(image.CalcOutputFile("small"), "");
  EXPECT_EQ(platform.calls, (Calls{EAPath(png, "TAVIPHOTO_THUMB_S.png"),
                                   EAPath(png, "TAVIPHOTO:THUMB_S.png"),
                                   EAPath(png, "TAVIFILE_THUMB_S.png"),
                                   EAPath(png, "TAVIFILE_THUMB_S.png"),
                                   {"TAVIGetFSType", folder.Path(), "0"},
                                   {"TAVIFSIsRemoteFS", "1"},
                                   {"TAVIFSIsImageFS", "1"},
                                   EAPath(png, "TAVIFILETMP_THUMB.png"),
                                   {"TAVIEADirPath", "0", png, "4096"},
                                   {"TAVIEAMKDir", "1", folder / "ea/a.png"},
                                   {"TLIBCExecv", "/usr/bin/convert", "1", "/usr/bin/convert", "-strip", "-colorspace",
                                    "sRGB", png + "[0]", "-thumbnail", "120x120", "-rotate", "0", "-rotate", "0",
                                    Entry(png, "TAVIFILETMP_THUMB.png")}}));
  platform.calls.clear();
  EXPECT_EQ(OpenThumb(video, 0x4B, false).CalcOutputFile("small"), "");
  EXPECT_EQ(platform.calls,
            (Calls{EAPath(video, "TAVIPHOTO_THUMB_S.jpg"), EAPath(video, "TAVIPHOTO:THUMB_S.jpg"),
                   EAPath(video, "TAVIFILE_THUMB_S.jpg"), EAPath(video, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg")}));
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Driver, StopsAtTheFirstUpToDateEntry) {
  const std::string png = Png();
  const char* const order[] = {"TAVIPHOTO_THUMB_S.png", "TAVIPHOTO:THUMB_S.png", "TAVIFILE_THUMB_S.png"};
  const char* const types[] = {"Albumex", "Albumex", "Brovix"};
  for (int i = 2; i >= 0; --i) {
    SCOPED_TRACE(order[i]);
    const std::string entry = Store(png, order[i], 1000);
    platform.calls.clear();
    OpenThumb job(png, 3, false);
    EXPECT_EQ(job.CalcOutputFile("small"), entry);
    EXPECT_EQ(job.GetOutputFile(), entry);
    EXPECT_EQ(job.GetOutputType(), types[i]);
    EXPECT_EQ(LookedUp(), Listing(order, order + i + 1));
    EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
  }
}

TEST_F(Driver, AnswersAVideoFromTheCinevoEntryAndNeverReadsOrConvertsIt) {
  const std::string video = Source("clip.mp4");
  const std::string entry = Store(video, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", 1000);
  OpenThumb job(video, 0, false);
  EXPECT_EQ(job.CalcOutputFile("large"), entry);
  EXPECT_EQ(job.GetOutputType(), "Cinevo");
  EXPECT_EQ(job.GetOutputMimeType(), "image/jpeg");
  EXPECT_FALSE(job.info_.IsGood());
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
}

TEST_F(Driver, LooksUpNothingForTheOriginalOfAVideo) {
  OpenThumb job(Source("clip.mp4"), 3, false);
  job.type_ = 5;
  EXPECT_EQ(job.CalcOutputFile("original"), "");
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Driver, AnswersAnAvatarFromItsEntryAsABrovixThumbnail) {
  const std::string png = Png();
  const std::string entry = Store(png, "TAVIAVATAR_120x120.png", 1000);
  OpenThumb job(png, 0x23, false);
  EXPECT_EQ(job.CalcOutputFile("small"), entry);
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(LookedUp(), Listing{"TAVIAVATAR_120x120.png"});
}

TEST_F(Driver, ServesTheEmbeddedPreviewEvenIfConvertingIsForbidden) {
  const std::string jpeg = folder / "a.jpg";
  MakeJpeg(jpeg, 800, 600);
  MakeJpeg(folder / "preview.jpg", 160, 120);
  SetPreview(jpeg, folder / "preview.jpg");
  RealUnlink((folder / "preview.jpg").c_str());
  SetTimes(jpeg, 900, 1000);
  OpenThumb job(jpeg, 1 | 4, false);
  EXPECT_EQ(job.CalcOutputFile("small"), Entry(jpeg, "TAVIFILE_THUMB_S.jpg"));
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_FALSE(job.IsNeedDelete());
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
  EXPECT_EQ(Entries(jpeg), Listing{"TAVIFILE_THUMB_S.jpg"});
  EXPECT_FALSE(Exists(job.info_.GetEXIFPreviewTmpPath()));
  EXPECT_EQ(LookedUp(), (Listing{"TAVIPHOTO_THUMB_S.jpg", "TAVIPHOTO:THUMB_S.jpg", "TAVIFILE_THUMB_S.jpg",
                                 "TAVIFILE_THUMB_S.jpg"}));
}

TEST_F(Driver, ServesTheSourceAsTheOriginalIfBrowsersCanShowIt) {
  const std::string png = Png();
  OpenThumb job(png, 3, false);
  EXPECT_EQ(job.CalcOutputFile("original"), png);
  EXPECT_EQ(job.GetOutputFile(), png);
  EXPECT_EQ(job.GetOutputType(), "Original");
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Driver, LooksUpNothingForAnOriginalThatBrowsersCannotShow) {
  MakeTiff(folder / "a.tif", 200, 150);
  OpenThumb job(folder / "a.tif", 3, false);
  job.outputFile_ = "/earlier";
  EXPECT_EQ(job.CalcOutputFile(),
            "");  // the request of a new job is the original
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(job.CalcOutputFile("original"),
            "/earlier");  // the result of an earlier step is returned
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Driver, TriesTheSmallerSizesAfterAnOriginalThatBrowsersCannotShow) {
  MakeTiff(folder / "a.tif", 200, 150);
  SetTimes(folder / "a.tif", 900, 1000);
  const std::string entry = Store(folder / "a.tif", "TAVIFILE_THUMB_B.jpg", 1000);
  OpenThumb job(folder / "a.tif", 2 | 4 | 0x40, false);
  EXPECT_EQ(job.CalcOutputFile("original"), entry);
  EXPECT_EQ(job.info_.GetSize(), "big");
  EXPECT_EQ(LookedUp(), (Listing{"TAVIFILE_THUMB_XL.jpg", "TAVIFILE_THUMB_XL.jpg",  // xlarge
                                 "TAVIFILE_THUMB_XL.jpg", "TAVIFILE_THUMB_XL.jpg",  // large
                                 "TAVIFILE_THUMB_B.jpg"}));
}

TEST_F(Driver, FallsBackToTheSmallerSizesInOrder) {
  const std::string png = Png();
  OpenThumb job(png, 2 | 4 | 0x40, false);
  EXPECT_EQ(job.CalcOutputFile("big"), "");
  EXPECT_EQ(LookedUp(), (Listing{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_M.png",
                                 "TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png", "TAVIFILE_THUMB_S.png"}));
  const std::string entry = Store(png, "TAVIFILE_THUMB_M.png", 1000);
  platform.calls.clear();
  EXPECT_EQ(job.CalcOutputFile("big"), entry);
  EXPECT_EQ(LookedUp(), (Listing{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_M.png"}));
}

TEST_F(Driver, ReturnsAnEarlierResultOnlyWithoutFallback) {
  OpenThumb job(Png(), 4, false);
  job.outputFile_ = "/earlier";
  EXPECT_EQ(job.CalcOutputFile("small"), "/earlier");
  job.SetOption(4 | 0x40);
  EXPECT_EQ(job.CalcOutputFile("small"), "");
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(job.CalcOutputFile(), "");
}

TEST_F(Driver, StopsTheFallbackAtASizeThatTheSourceIsServedFor) {
  const std::string png = Png("a.png", 500, 400);
  OpenThumb job(png, 0x40, false);
  EXPECT_EQ(job.CalcOutputFile("medium"), "");  // 500 pixels need converting for "medium" and "small"
  EXPECT_EQ(job.info_.GetSize(), "small");
  EXPECT_EQ(job.CalcOutputFile("big"), png);
  EXPECT_EQ(job.info_.GetSize(), "big");
  EXPECT_EQ(job.info_.GetDimension(), (ThumbDimension{640, 640}));
}

TEST_F(Driver, KnowsNoOtherSizeNames) {
  OpenThumb job(Png(), 0x43, false);
  job.outputFile_ = "/earlier";
  for (const std::string name : {"__CUSTOM_SIZE__", "huge", "", "Small"}) {
    EXPECT_EQ(job.CalcOutputFile(name), "") << name;
    EXPECT_EQ(job.info_.GetSize(), "original");
    EXPECT_EQ(job.GetOutputFile(), "/earlier");
  }
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Driver, ServesTheSourceIfNothingHasToBeConverted) {
  const std::string png = Png("small.png", 100, 80);
  OpenThumb job(png, 2, false);
  EXPECT_EQ(job.CalcOutputFile("small"), png);
  EXPECT_EQ(job.GetOutputType(), "Original");
  EXPECT_FALSE(job.IsNeedDelete());
}

TEST_F(Driver, NeverServesTheSourceJustBecauseItsConversionFailed) {
  OpenThumb job(Png(), 2, false);
  EXPECT_EQ(job.CalcOutputFile("small"), "");
  EXPECT_EQ(job.GetOutputType(), "");
}

TEST_F(Driver, ServesTheSourceIfAnEarlierRequestHadChosenIt) {
  const std::string png = Png();
  OpenThumb job(png, 2 | 4, false);
  EXPECT_EQ(job.CalcOutputFile("original"), png);
  EXPECT_EQ(job.CalcOutputFile("small"),
            png);  // the type is kept between requests
  EXPECT_EQ(job.GetOutputType(), "Original");
}

TEST_F(Driver, ServesTheSourceAfterAFailureOnlyIfThatIsNotForbidden) {
  const std::string png = Png();
  OpenThumb job(png, 2, false);
  job.noOriginalFallback_ = false;
  EXPECT_EQ(job.CalcOutputFile("small"), png);
  EXPECT_EQ(job.GetOutputType(), "");
  const std::string video = Source("clip.mp4");
  OpenThumb videoJob(video, 2, false);
  videoJob.type_ = 5;
  EXPECT_EQ(videoJob.CalcOutputFile("small"), video);
}

TEST_F(Driver, MakesAThumbnailNow) {
  toolsWork = true;
  const std::string png = Png();
  OpenThumb job(png, 2, false);
  EXPECT_EQ(job.CalcOutputFile("small"), Entry(png, "TAVIFILE_THUMB_S.png"));
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(job.GetOutputMimeType(), "image/png");
}

TEST_F(Driver, NeverConvertsWhenForbidden) {
  toolsWork = true;
  OpenThumb job(Png(), 2 | 4, false);
  EXPECT_EQ(job.CalcOutputFile("small"), "");
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
}

TEST_F(Driver, ServesHeicUnchangedIfTheCallerCanShowItAndNothingWasFound) {
  const std::string heic = folder / "a.heic";
  MakeHeic(heic, 200, 150, true);
  SetTimes(heic, 900, 1000);
  OpenThumb accepting(heic, 2, true);
  EXPECT_EQ(accepting.CalcOutputFile("small"), heic);
  EXPECT_EQ(accepting.GetOutputType(), "");
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
  const std::string entry = Store(heic, "TAVIFILE_THUMB_S.jpg", 1000);
  EXPECT_EQ(OpenThumb(heic, 2, true).CalcOutputFile("small"), entry);
  EXPECT_EQ(OpenThumb(heic, 4, false).CalcOutputFile("small"), "");
}

TEST_F(Driver, ServesOnlyHeicUnchangedToACallerThatCanShowHeic) {
  OpenThumb job(Png(), 2, true);
  EXPECT_EQ(job.CalcOutputFile("small"), "");
  EXPECT_EQ(job.GetOutputFile(), "");
}

TEST_F(Driver, ContinuesWithoutFactsForAnUnknownType) {
  WriteFile(folder / "text.jpg", std::string(100, 'x'));
  OpenThumb job(folder / "text.jpg", 3, false);
  EXPECT_EQ(job.CalcOutputFile("small"), "");
  EXPECT_EQ(LookedUp(), (Listing{"TAVIPHOTO_THUMB_S.jpg", "TAVIPHOTO:THUMB_S.jpg", "TAVIFILE_THUMB_S.jpg",
                                 "TAVIFILETMP_THUMB.jpg", "TAVIFILETMP_THUMB.jpg"}));
}

TEST_F(Driver, ThrowsOnASourceThatIsDamagedOrGone) {
  WriteFile(folder / "short.jpg", "");
  OpenThumb damaged(folder / "short.jpg", 3, false), gone(Source("gone.jpg"), 3, false);
  RealUnlink((folder / "gone.jpg").c_str());
  const std::pair<OpenThumb*, int> rows[] = {{&damaged, 601}, {&gone, 603}};
  for (const auto& [job, code] : rows) {
    SCOPED_TRACE(code);
    try {
      job->CalcOutputFile("small");
      FAIL();
    } catch (const Error& error) {
      EXPECT_EQ(error.Code(), code);
    }
  }
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Driver, PassesOnTheExceptionForAnInvalidOrientation) {
  MakeJpeg(folder / "odd.jpg", 200, 150);
  SetExif(folder / "odd.jpg", {{"Exif.Image.Orientation", "odd"}});
  EXPECT_THROW(OpenThumb(folder / "odd.jpg", 2, false).CalcOutputFile("small"), std::invalid_argument);
}

TEST_F(Driver, ReadsTheFactsAgainForEachRequest) {
  const std::string png = Png("a.png", 100, 80);
  OpenThumb job(png, 2, false);
  job.CalcOutputFile("small");
  EXPECT_EQ(job.info_.GetWidth(), 100u);
  MakePng(png, 300, 200);
  job.CalcOutputFile("small");
  EXPECT_EQ(job.info_.GetWidth(), 300u);
}

class Batch : public Driver {
 protected:
  Log Internal(int line) const { return {Logged(line, "Convert", "Unknown Internal Error")}; }

  // The sizes of the destinations that were made, by their EA names.
  Listing Made(const std::string& source) const { return Entries(source); }
};

TEST_F(Batch, LogsAnUnknownNameAndContinues) {
  toolsWork = true;
  const std::string source = Source("a.jpg");
  OpenThumb job(source, 0, false);
  SetFacts(&job, 4000, 3000, "image/png");
  EXPECT_EQ(job.Convert({std::string("small"), std::string("huge"), std::string("big")}), 2);
  EXPECT_EQ(log.lines, Internal(95));
  EXPECT_EQ(Made(source), (Listing{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_S.png"}));
  EXPECT_EQ(job.info_.GetSize(), "big");
  EXPECT_EQ(job.info_.GetDimension(), (ThumbDimension{640, 640}));
}

TEST_F(Batch, CatchesAnyExceptionOfASizeAndContinues) {
  toolsWork = true;
  const std::string source = Source("a.jpg");
  OpenThumb job(source, 0, false);
  SetFacts(&job, 4000, 3000, "image/png");
  const auto run = platform.run;
  int runs = 0;
  platform.run = [&](const std::string& path, const std::vector<std::string>& argv) {
    if (++runs == 1) throw std::runtime_error("out of luck");
    if (runs == 2) throw Error(601);
    if (runs == 3) throw 7;
    return run(path, argv);
  };
  EXPECT_TRUE(job.ConvertAll());
  EXPECT_EQ(log.lines, Log(3, Internal(95).front()));
  EXPECT_EQ(Made(source), Listing{"TAVIFILE_THUMB_XL.png"});
  runs = 0;
  log.lines.clear();
  EXPECT_EQ(job.Convert({ThumbDimension{30, 20}, {31, 20}, {32, 20}}), 0);
  EXPECT_EQ(log.lines, Log(3, Internal(113).front()));
}

TEST_F(Batch, KeepsTheBoxOfTheSizeBeforeAnUnknownName) {
  OpenThumb job(Source("a.jpg"), 0, false);
  EXPECT_EQ(job.Convert({std::string("small"), std::string("huge")}), 0);
  EXPECT_EQ(job.info_.GetSize(), "huge");
  EXPECT_EQ(job.info_.GetDimension(), (ThumbDimension{120, 120}));
}

TEST_F(Batch, DoesNotCountSizesThatFailOrDecline) {
  OpenThumb job(Source("a.jpg"), 0, false);
  SetFacts(&job, 300, 200, "image/png");
  toolsWork = true;
  EXPECT_EQ(job.Convert({std::string("small"), std::string("medium"), std::string("big")}), 1);
  toolsWork = false;
  EXPECT_EQ(job.Convert({std::string("small")}), 0);
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Batch, MakesBoxesUnderTheNameForCustomSizes) {
  toolsWork = true;
  const std::string source = Source("a.jpg");
  OpenThumb job(source, 0, false);
  SetFacts(&job, 4000, 3000, "image/png");
  EXPECT_EQ(job.Convert({ThumbDimension{300, 200}, ThumbDimension{50, 60}}), 2);
  EXPECT_EQ(Made(source), (Listing{"TAVIFILE_THUMB_300x200.png", "TAVIFILE_THUMB_50x60.png"}));
  EXPECT_EQ(job.info_.GetSize(), "__CUSTOM_SIZE__");
  EXPECT_EQ(job.info_.GetDimension(), (ThumbDimension{50, 60}));
}

TEST_F(Batch, DoesNotCountBoxesThatFailOrDecline) {
  OpenThumb job(Source("a.jpg"), 0, false);
  SetFacts(&job, 300, 200, "image/png");
  toolsWork = true;
  EXPECT_EQ(job.Convert({ThumbDimension{400, 400}, {50, 60}, {300, 200}}), 1);
  toolsWork = false;
  EXPECT_EQ(job.Convert({ThumbDimension{50, 60}}), 0);
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Batch, LogsAnExceptionOfABoxAndContinues) {
  toolsWork = true;
  const std::string source = Source("a.jpg");
  OpenThumb job(source, 0, false);
  SetFacts(&job, 4000, 3000, "image/png");
  const auto run = platform.run;
  int runs = 0;
  platform.run = [&](const std::string& path, const std::vector<std::string>& argv) {
    if (++runs == 1) throw std::runtime_error("out of luck");
    return run(path, argv);
  };
  EXPECT_EQ(job.Convert({ThumbDimension{300, 200}, ThumbDimension{50, 60}}), 1);
  EXPECT_EQ(log.lines, Internal(113));
  EXPECT_EQ(Made(source), Listing{"TAVIFILE_THUMB_50x60.png"});
}

TEST_F(Batch, OfNothingMakesNothing) {
  OpenThumb job(Source("a.jpg"), 0, false);
  EXPECT_EQ(job.Convert(std::initializer_list<std::string>{}), 0);
  EXPECT_EQ(job.Convert(std::initializer_list<ThumbDimension>{}), 0);
  EXPECT_EQ(job.info_.GetSize(), "original");
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Batch, OfAllMakesTheFiveReducedSizesSmallestFirst) {
  toolsWork = true;
  const std::string source = Source("a.jpg");
  OpenThumb job(source, 0, false);
  SetFacts(&job, 4000, 3000, "image/png");
  Listing boxes;
  const auto run = platform.run;
  platform.run = [&](const std::string& path, const std::vector<std::string>& argv) {
    boxes.push_back(argv[6]);
    return run(path, argv);
  };
  EXPECT_TRUE(job.ConvertAll());
  EXPECT_EQ(boxes, (Listing{"120x120", "360x360", "640x640", "1280x1280", "1280x1280"}));
  EXPECT_EQ(Made(source),
            (Listing{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png", "TAVIFILE_THUMB_XL.png"}));
  EXPECT_EQ(job.info_.GetSize(), "xlarge");
}

TEST_F(Batch, OfAllSucceedsWithOneSizeAndFailsWithNone) {
  OpenThumb job(Source("a.jpg"), 0, false);
  SetFacts(&job, 4000, 3000, "image/png");
  EXPECT_FALSE(job.ConvertAll());
  int runs = 0;
  platform.run = [&](const std::string&, const std::vector<std::string>& argv) {
    if (++runs != 4) return 1;
    WriteFile(argv.back(), "made");
    return 0;
  };
  EXPECT_TRUE(job.ConvertAll());
}

TEST_F(Batch, ReadsNoFacts) {
  toolsWork = true;
  const std::string png = Png();
  OpenThumb job(png, 0, false);
  EXPECT_FALSE(job.ConvertAll());  // without facts nothing but a raw preview
                                   // could be made
  EXPECT_EQ(job.info_.GetMimeType(), "");
  EXPECT_FALSE(job.info_.IsGood());
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
}

}  // namespace
}  // namespace tavithumb::test
