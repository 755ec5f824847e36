// SPDX-License-Identifier: GPL-3.0-or-later
// A request in steps of the caller's: facts that are read once, look-ups that make nothing.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "job_fixture.h"
#include "pictures.h"

namespace tavithumb::test {
namespace {

constexpr std::time_t kNow = 1700000000;

class Steps : public JobTest {
 protected:
  Steps() {
    libc.time = [] { return kNow; };
    libc.geteuid = [] { return uid_t{0}; };
    libc.getegid = [] { return gid_t{0}; };
    libc.chown = [](const char*, uid_t, gid_t) { return 0; };
    platform.run = [this](const std::string&, const std::vector<std::string>& argv) {
      if (!toolsWork) return 1;
      WriteFile(argv[0] == "/usr/bin/djpeg" ? argv[9] : argv.back(), "made");
      return 0;
    };
  }
  std::string Png(int width = 1300, int height = 1300) const {
    MakePng(folder / "a.png", width, height);
    SetTimes(folder / "a.png", 900, 1000);
    return folder / "a.png";
  }
  // 800 x 600 pixels, with a preview of 160 x 120.
  std::string JpegWithPreview() const {
    MakeJpeg(folder / "a.jpg", 800, 600);
    MakeJpeg(folder / "preview.jpg", 160, 120);
    SetPreview(folder / "a.jpg", folder / "preview.jpg");
    RealUnlink((folder / "preview.jpg").c_str());
    return folder / "a.jpg";
  }

  bool toolsWork = true;
};

PlatformCall Convert(const std::string& from, const std::string& geometry, const std::string& to,
                     const std::string& userDegrees = "0") {
  return {"TLIBCExecv", "/usr/bin/convert", "1",       "/usr/bin/convert",
          "-strip",     "-colorspace",      "sRGB",    from + "[0]",
          "-thumbnail", geometry,           "-rotate", "0",
          "-rotate",    userDegrees,        to};
}

TEST_F(Steps, RequestASizeOrABoxWithoutLookingAtAnything) {
  const Thumb::OutputType none = Thumb::OUTPUT_NONE;
  Thumb job(Source("a.jpg"), 0, false);
  EXPECT_EQ(job.GetInfo().GetSize(), "original");
  job.SetRequest("medium");
  EXPECT_EQ(job.GetInfo().GetSize(), "medium");
  EXPECT_EQ(job.GetInfo().GetDimension(), (ThumbDimension{360, 360}));
  job.SetRequest(ThumbDimension{300, 200});
  EXPECT_EQ(job.GetInfo().GetSize(), "__CUSTOM_SIZE__");
  EXPECT_EQ(job.GetInfo().GetDimension(), (ThumbDimension{300, 200}));
  EXPECT_THROW(job.SetRequest("huge"), std::out_of_range);
  EXPECT_EQ(job.GetOutputTypeCode(), none);
  EXPECT_EQ(job.GetInfo().GetPath(), folder / "a.jpg");
  EXPECT_EQ(platform.calls, Calls{});
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Steps, TellTheOutputTypeAsANumber) {
  OpenThumb job(Source("a.jpg"), 0, false);
  const std::pair<Thumb::OutputType, const char*> rows[] = {
      {Thumb::OUTPUT_NONE, ""},         {Thumb::OUTPUT_ALBUMEX, "Albumex"},
      {Thumb::OUTPUT_BROVIX, "Brovix"}, {Thumb::OUTPUT_BROVIX_VAR_TMP, "BrovixVarTmp"},
      {Thumb::OUTPUT_CINEVO, "Cinevo"}, {Thumb::OUTPUT_ORIGINAL, "Original"},
  };
  int number = 0;
  for (const auto& [code, name] : rows) {
    job.type_ = number;
    EXPECT_EQ(job.GetOutputTypeCode(), code);
    EXPECT_EQ(job.GetOutputType(), name);
    ++number;
  }
}

TEST_F(Steps, TryTheSizeAndWithTheOptionTheSmallerOnes) {
  using Sizes = std::vector<std::string>;
  struct Row {
    const char* source;
    int options;
    const char* size;
    Sizes sizes;
  };
  const Row rows[] = {
      {"a.jpg", 0, "big", {"big"}},
      {"a.jpg", 0, "small", {"small"}},
      {"a.jpg", Thumb::OPT_FALLBACK_SMALLER, "big", {"big", "medium", "small"}},
      {"a.jpg", Thumb::OPT_FALLBACK_SMALLER, "small", {"small"}},
      {"a.jpg", Thumb::OPT_FALLBACK_SMALLER, "original", {"original", "xlarge", "large", "big", "medium", "small"}},
      {"clip.mp4", Thumb::OPT_FALLBACK_SMALLER, "big", {"big"}},
      {"a.jpg", Thumb::OPT_FALLBACK_SMALLER, "huge", {}},
      {"a.jpg", Thumb::OPT_FALLBACK_SMALLER, "__CUSTOM_SIZE__", {}},
      {"a.jpg", 0, "", {}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Thumb(Source(row.source), row.options, false).GetSizesToTry(row.size), row.sizes)
        << row.source << " " << row.options << " " << row.size;
  }
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Steps, FindWhatIsStoredInTheSlotsThatTheOptionsNameInTheirOrder) {
  struct Row {
    const char* source;
    int options;
    Listing lookedUp;
  };
  const Row rows[] = {
      {"a.jpg", 0, {}},
      {"a.jpg", 1, {"TAVIPHOTO_THUMB_B.jpg", "TAVIPHOTO:THUMB_B.jpg"}},
      {"a.jpg", 2, {"TAVIFILE_THUMB_B.jpg"}},
      {"a.jpg", 3, {"TAVIPHOTO_THUMB_B.jpg", "TAVIPHOTO:THUMB_B.jpg", "TAVIFILE_THUMB_B.jpg"}},
      {"a.jpg", 0x23, {"TAVIAVATAR_640x600.jpg"}},
      {"clip.mp4", 2, {"TAVIFILE_THUMB_B.jpg", "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"}},
      {"clip.mp4", 0x20, {"TAVIVIDEO_VIDEO_SCREENSHOT.jpg", "TAVIAVATAR_640x640.jpg"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.source << " " << row.options);
    const std::string source = Source(row.source);
    // Nothing at first, then each of them where all before it are missing.
    for (std::size_t found = row.lookedUp.size() + 1; found-- > 0;) {
      const std::string entry = found < row.lookedUp.size() ? Store(source, row.lookedUp[found], 1000) : "";
      OpenThumb job(source, row.options, false);
      SetRequest(&job, "big");
      if (std::string(row.source) == "a.jpg") SetFacts(&job, 800, 600);
      platform.calls.clear();
      EXPECT_EQ(job.SetOutStored(), !entry.empty());
      EXPECT_EQ(job.GetOutputFile(), entry);
      Calls expected;
      for (std::size_t i = 0; i < std::min(found + 1, row.lookedUp.size()); ++i) {
        expected.push_back(EAPath(source, row.lookedUp[i]));
      }
      EXPECT_EQ(platform.calls, expected);
    }
    for (const std::string& name : row.lookedUp) RealUnlink(Entry(source, name).c_str());
  }
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Steps, FindNothingThatIsOlderThanTheSourceAndMakeNothing) {
  const std::string png = Png();
  Store(png, "TAVIFILE_THUMB_S.png", 999);
  Thumb job(png, Thumb::OPT_BROVIX_EA, false);
  job.SetRequest("small");
  job.ReadFacts();
  platform.calls.clear();
  EXPECT_FALSE(job.SetOutStored());
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(platform.calls, Calls{EAPath(png, "TAVIFILE_THUMB_S.png")});
  EXPECT_EQ(Entries(png), Listing{"TAVIFILE_THUMB_S.png"});
}

TEST_F(Steps, ThrowWhenASlotHasNoNameForTheSize) {
  Thumb job(Source("a.jpg"), Thumb::OPT_BROVIX_EA, false);
  job.SetRequest("original");
  EXPECT_THROW(job.SetOutStored(), std::out_of_range);
  Thumb box(Source("a.jpg"), Thumb::OPT_ALBUMEX_EA, false);
  box.SetRequest(ThumbDimension{300, 200});
  EXPECT_THROW(box.SetOutStored(), std::out_of_range);
}

TEST_F(Steps, ReadTheFactsAndExtractThePreviewThatFits) {
  const std::string jpeg = JpegWithPreview();
  const std::vector<std::string> before = OwnTemporaryFiles();
  std::string preview;
  {
    Thumb job(jpeg, 0, false);
    job.SetRequest("small");
    job.ReadFacts();
    EXPECT_EQ(job.GetInfo().GetWidth(), 800u);
    EXPECT_TRUE(job.GetInfo().IsGood());
    preview = job.GetInfo().GetEXIFPreviewTmpPath();
    EXPECT_TRUE(Exists(preview));
  }
  EXPECT_FALSE(Exists(preview));
  EXPECT_EQ(OwnTemporaryFiles(), before);
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Steps, ReadNoFactsOfAVideoOrOfAnUnknownTypeAndThrowOtherErrors) {
  WriteFile(folder / "text.jpg", std::string(100, 'x'));
  WriteFile(folder / "short.jpg", "");
  Thumb video(Source("clip.mp4"), 0, false), text(folder / "text.jpg", 0, false),
      damaged(folder / "short.jpg", 0, false), gone(Source("gone.jpg"), 0, false);
  RealUnlink((folder / "gone.jpg").c_str());
  video.ReadFacts();
  text.ReadFacts();
  EXPECT_FALSE(video.GetInfo().IsGood());
  EXPECT_FALSE(text.GetInfo().IsGood());
  const std::pair<Thumb*, int> rows[] = {{&damaged, 601}, {&gone, 603}};
  for (const auto& [job, code] : rows) {
    try {
      job->ReadFacts();
      ADD_FAILURE() << code;
    } catch (const Error& error) {
      EXPECT_EQ(error.Code(), code);
    }
  }
}

TEST_F(Steps, TakeOverFactsAndNothingElse) {
  const std::string source = Source("a.jpg");
  OpenInfo facts(source, "small", {120, 120});
  facts.mimeType_ = "image/gif";
  facts.width_ = 800;
  facts.height_ = 600;
  facts.rotate_ = 1;
  facts.flop_ = true;
  facts.good_ = true;
  facts.heic_ = true;
  facts.userRotate_ = 3;
  facts.cropMode_ = true;
  facts.exifPreviewTmpPath_ = folder / "preview";
  WriteFile(folder / "preview", "");
  {
    OpenThumb job(source, Thumb::OPT_ENABLE_GIF, false);
    job.SetRequest("big");
    job.Rotate(2);
    job.SetFacts(facts);
    const ThumbInfo& info = job.GetInfo();
    EXPECT_EQ(info.GetMimeType(), "image/gif");
    EXPECT_EQ(info.GetWidth(), 800u);
    EXPECT_EQ(info.GetHeight(), 600u);
    EXPECT_EQ(info.GetRotate(), 1);
    EXPECT_TRUE(info.GetFlop());
    EXPECT_TRUE(info.IsGood());
    EXPECT_TRUE(info.IsHeic());
    EXPECT_EQ(info.GetSize(), "big");
    EXPECT_EQ(info.GetDimension(), (ThumbDimension{640, 640}));
    EXPECT_EQ(info.GetUserRotate(), 2);
    EXPECT_TRUE(info.GetEnableGIF());
    EXPECT_FALSE(info.GetCropMode());
    EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
  }
  EXPECT_TRUE(Exists(folder / "preview"));
}

TEST_F(Steps, AnswerFromFactsWithoutReadingThem) {
  const std::string png = Png();
  ThumbInfo facts(png, "original", {1, 1});
  facts.ExtractImgInfo(false);
  WriteFile(png, "changed");
  SetTimes(png, 900, 1000);
  for (const auto& [size, entry] : {std::pair{"small", "TAVIFILE_THUMB_S.png"}, {"big", "TAVIFILE_THUMB_B.png"}}) {
    Thumb job(png, Thumb::OPT_BROVIX_EA, false);
    job.SetRequest(size);
    job.SetFacts(facts);
    EXPECT_EQ(job.CalcFromFacts(), Entry(png, entry));
    EXPECT_EQ(job.GetOutputTypeCode(), Thumb::OUTPUT_BROVIX);
  }
  EXPECT_EQ(Entries(png), (Listing{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_S.png"}));
  EXPECT_EQ(platform.Calls("TLIBCExecv"), (Calls{Convert(png, "120x120", Entry(png, "TAVIFILETMP_THUMB.png")),
                                                 Convert(png, "640x640", Entry(png, "TAVIFILETMP_THUMB.png"))}));
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Steps, AnswerForABox) {
  const std::string png = Png();
  Thumb job(png, Thumb::OPT_BROVIX_EA, false);
  job.SetRequest(ThumbDimension{300, 200});
  job.ReadFacts();
  EXPECT_EQ(job.CalcFromFacts(), Entry(png, "TAVIFILE_THUMB_300x200.png"));
  EXPECT_EQ(Entries(png), Listing{"TAVIFILE_THUMB_300x200.png"});
}

TEST_F(Steps, AnswerWithThePreviewThatWasExtracted) {
  const std::string jpeg = JpegWithPreview();
  Thumb job(jpeg, Thumb::OPT_NO_CONVERT, false);
  job.SetRequest("small");
  job.ReadFacts();
  EXPECT_EQ(job.CalcFromFacts(), Entry(jpeg, "TAVIFILE_THUMB_S.jpg"));
  EXPECT_FALSE(Exists(job.GetInfo().GetEXIFPreviewTmpPath()));
}

TEST_F(Steps, AnswerTheOriginalOrNothing) {
  const std::string png = Png();
  Thumb known(png, 0, false), unknown(png, 0, false);
  known.ReadFacts();
  EXPECT_EQ(known.CalcFromFacts(), png);
  EXPECT_EQ(known.GetOutputTypeCode(), Thumb::OUTPUT_ORIGINAL);
  EXPECT_EQ(unknown.CalcFromFacts(), "");
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(Steps, KnowWhetherTheSourceItselfServes) {
  constexpr off_t decoded = 800 * 600 * 3 + 54;
  struct Row {
    const char* what;
    const char* mimeType;
    const char* size;
    off_t bytes;
    bool serves;
  };
  const Row rows[] = {
      {"it fits", "image/png", "large", 100, true},
      {"it is too large", "image/png", "big", 100, false},
      {"a JPEG with no more bytes than its decode", "image/jpeg", "big", decoded, true},
      {"a JPEG with one more", "image/jpeg", "big", decoded + 1, false},
      {"no browser shows it", "image/tiff", "large", 100, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    OpenThumb job(Source("a.jpg"), 0, false);
    SetFacts(&job, 800, 600, row.mimeType);
    SetRequest(&job, row.size);
    job.Info().stat_.st_size = row.bytes;
    EXPECT_EQ(job.WouldServeSource(), row.serves);
    EXPECT_EQ(platform.calls, Calls{});
    EXPECT_EQ(job.GetOutputTypeCode(), Thumb::OUTPUT_NONE);
    EXPECT_EQ(job.SetOutOnline(), !row.serves);
    EXPECT_EQ(job.GetOutputTypeCode() == Thumb::OUTPUT_ORIGINAL, row.serves);
    platform.calls.clear();
  }
  OpenThumb turned(Source("a.jpg"), 0, false);
  SetFacts(&turned, 100, 100, "image/png");
  SetRequest(&turned, "big");
  EXPECT_TRUE(turned.WouldServeSource());
  turned.Rotate(1);
  EXPECT_FALSE(turned.WouldServeSource());
  EXPECT_FALSE(Thumb(Source("clip.mp4"), 0, false).WouldServeSource());
}

TEST_F(Steps, AnswerWithATemporaryFileOfTheCallersAndLeaveItToTheCaller) {
  const std::string made = Source("made.png", "made");
  for (const auto& [size, needDelete] : {std::pair{"original", false}, {"medium", true}}) {
    SCOPED_TRACE(size);
    {
      OpenThumb job(Source("a.jpg"), Thumb::OPT_BROVIX_EA, false);
      SetRequest(&job, size);
      job.needDelete_ = needDelete;
      EXPECT_TRUE(job.SetOutOriginalImage());
      EXPECT_TRUE(job.SetOutTemporary(made));
      EXPECT_EQ(job.GetOutputFile(), made);
      EXPECT_EQ(job.GetOutputTypeCode(), Thumb::OUTPUT_BROVIX_VAR_TMP);
      EXPECT_EQ(job.GetOutputType(), "BrovixVarTmp");
      EXPECT_EQ(job.IsNeedDelete(), needDelete);
      EXPECT_EQ(job.GetInfo().GetSize(), size);
      EXPECT_FALSE(job.GetInfo().IsGood());
    }
    EXPECT_EQ(ReadFile(made), "made");
    EXPECT_EQ(Names(folder.Path()), (Listing{"a.jpg", "made.png"}));
  }
  EXPECT_TRUE(Thumb(Source("a.jpg"), 0, false).SetOutTemporary("/nowhere/made.png"));
  EXPECT_EQ(platform.calls, Calls{});
  EXPECT_EQ(log.lines, Log{});
}

class Converted : public Steps {
 protected:
  // A request that the source itself would serve.
  Converted() : source(Source("a.png")), job(source, 0, false) {
    SetFacts(&job, 100, 80, "image/png");
    SetRequest(&job, "big");
    job.outputFile_ = "/earlier";
  }

  const std::string source;
  OpenThumb job;
};

TEST_F(Converted, IsWhatWouldServeItselfToo) {
  job.Rotate(2);
  const std::string work = Entry(source, "TAVIFILETMP_THUMB_r2.png");
  EXPECT_TRUE(job.SetOutConverted());
  EXPECT_EQ(job.GetOutputFile(), Entry(source, "TAVIFILE_THUMB_B_r2.png"));
  EXPECT_EQ(job.GetOutputTypeCode(), Thumb::OUTPUT_BROVIX);
  EXPECT_FALSE(job.IsNeedDelete());
  EXPECT_EQ(Entries(source), Listing{"TAVIFILE_THUMB_B_r2.png"});
  EXPECT_EQ(ModificationTime(job.GetOutputFile()), 1000);
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{Convert(source, "100x80", work, "180")});
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(Converted, IsLeftUnderVarTmpOnAVolumeThatTakesNoEntries) {
  platform.fsType = platform.remoteFSType;
  const std::string made = "/var/tmp/tavithumb_TAVIFILETMP_THUMB.png_" + std::to_string(getpid()) + "_1700000000";
  EXPECT_TRUE(job.SetOutConverted());
  EXPECT_EQ(job.GetOutputFile(), made);
  EXPECT_EQ(job.GetOutputTypeCode(), Thumb::OUTPUT_BROVIX_VAR_TMP);
  EXPECT_EQ(Names(folder.Path()), Listing{"a.png"});
  RealUnlink(made.c_str());
}

TEST_F(Converted, IsNothingWhenTheToolFails) {
  toolsWork = false;
  EXPECT_FALSE(job.SetOutConverted());
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(job.GetOutputTypeCode(), Thumb::OUTPUT_NONE);
  EXPECT_EQ(Entries(source), Listing{});
}

TEST_F(Converted, IsNothingWhenItCannotBeStored) {
  libc.rename = [](const char*, const char*) { return errno = EIO, -1; };
  EXPECT_FALSE(job.SetOutConverted());
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(Entries(source), Listing{"TAVIFILETMP_THUMB.png"});
}

TEST_F(Converted, LeavesTheAnswerAsItWasWithoutAnEADirectory) {
  platform.makeEADirResult = -1;
  EXPECT_FALSE(job.SetOutConverted());
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(platform.Calls("TLIBCExecv"), Calls{});
}

}  // namespace
}  // namespace tavithumb::test
