// SPDX-License-Identifier: GPL-3.0-or-later
#include <stdexcept>

#include "job_fixture.h"

namespace tavithumb::test {
namespace {

struct Mode {
  const char* name;
  bool (Thumb::*find)();
  const char* eaName;
  int type;
};

const Mode modes[] = {
    {"Albumex", &Thumb::SetOutAlbumexEA, "TAVIPHOTO_THUMB_B.jpg", 1},
    {"old Albumex", &Thumb::SetOutAlbumexOldEA, "TAVIPHOTO:THUMB_B.jpg", 1},
    {"Cinevo", &Thumb::SetOutCinevoEA, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", 4},
    {"Brovix", &Thumb::SetOutBrovixEA, "TAVIFILE_THUMB_B.jpg", 2},
    {"avatar", &Thumb::SetOutAvatar, "TAVIAVATAR_640x640.jpg", 2},
};

class StoredModes : public JobTest {
 protected:
  StoredModes() : source(Source("a.jpg")), job(source, 0, false) {
    SetRequest(&job, "big");
    SetFacts(&job, 4000, 3000);
    job.type_ = 3;
    job.outputFile_ = "/earlier";
  }

  const std::string source;
  OpenThumb job;
};

TEST_F(StoredModes, AcceptAnEntryThatIsNotOlderThanTheSource) {
  for (const Mode& mode : modes) {
    for (const std::time_t time : {1000, 1001}) {
      SCOPED_TRACE(testing::Message() << mode.name << " at " << time);
      const std::string entry = Store(source, mode.eaName, time);
      platform.calls.clear();
      EXPECT_TRUE((job.*mode.find)());
      EXPECT_EQ(job.GetOutputFile(), entry);
      EXPECT_EQ(job.type_, mode.type);
      EXPECT_EQ(platform.calls, Calls{EAPath(source, mode.eaName)});
      EXPECT_EQ(log.lines, Log{});
    }
  }
}

TEST_F(StoredModes, LeaveTheOutputEmptyAndTheTypeUnchangedForAStaleEntry) {
  for (const Mode& mode : modes) {
    SCOPED_TRACE(mode.name);
    Store(source, mode.eaName, 999);
    job.outputFile_ = "/earlier";
    job.type_ = 3;
    EXPECT_FALSE((job.*mode.find)());
    EXPECT_EQ(job.GetOutputFile(), "");
    EXPECT_EQ(job.type_, 3);
  }
}

TEST_F(StoredModes, LeaveTheOutputEmptyAndTheTypeUnchangedForAMissingEntry) {
  for (const Mode& mode : modes) {
    SCOPED_TRACE(mode.name);
    job.outputFile_ = "/earlier";
    EXPECT_FALSE((job.*mode.find)());
    EXPECT_EQ(job.GetOutputFile(), "");
    EXPECT_EQ(job.type_, 3);
  }
}

TEST_F(StoredModes, KeepTheCandidateInTheOutputExceptForBrovixAndAvatarWhileItIsTested) {
  for (const Mode& mode : modes) {
    SCOPED_TRACE(mode.name);
    const std::string entry = Store(source, mode.eaName, 1000);
    job.outputFile_ = "/earlier";
    Listing tested, outputs;
    libc.stat64 = [&](const char* path, struct stat64* record) {
      tested.emplace_back(path);
      outputs.push_back(job.GetOutputFile());
      return RealStat64(path, record);
    };
    EXPECT_TRUE((job.*mode.find)());
    libc.stat64 = nullptr;
    EXPECT_EQ(tested, Listing{entry});
    EXPECT_EQ(outputs, Listing{mode.type == 2 ? "/earlier" : entry});
  }
}

TEST_F(StoredModes, PassOnTheExceptionForASizeWithoutALetterAndLeaveTheJobUnchanged) {
  SetRequest(&job, "original");
  for (const auto find : {&Thumb::SetOutAlbumexEA, &Thumb::SetOutAlbumexOldEA, &Thumb::SetOutBrovixEA}) {
    try {
      (job.*find)();
      FAIL();
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "map::at");
    }
  }
  EXPECT_EQ(job.GetOutputFile(), "/earlier");
  EXPECT_EQ(job.type_, 3);
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(StoredModes, LookForTheSizeAndRotationOfTheRequest) {
  SetRequest(&job, "medium");
  job.Rotate(1);
  job.SetOutAlbumexEA();
  job.SetOutAlbumexOldEA();
  job.SetOutCinevoEA();
  job.SetOutBrovixEA();
  job.SetOutAvatar();
  EXPECT_EQ(platform.calls,
            (Calls{EAPath(source, "TAVIPHOTO_THUMB_M.jpg"), EAPath(source, "TAVIPHOTO:THUMB_M.jpg"),
                   EAPath(source, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"), EAPath(source, "TAVIFILE_THUMB_M_r1.jpg"),
                   EAPath(source, "TAVIAVATAR_360x360_r1.jpg")}));
}

TEST_F(StoredModes, TreatAnEmptyEAPathAsAMissingEntry) {
  platform.hasEAPath = false;
  for (const Mode& mode : modes) {
    SCOPED_TRACE(mode.name);
    log.lines.clear();
    job.outputFile_ = "/earlier";
    EXPECT_FALSE((job.*mode.find)());
    EXPECT_EQ(job.GetOutputFile(), "");
    EXPECT_EQ(job.type_, 3);
    EXPECT_EQ(log.lines,
              (Log{{LOG_ERR, std::string("util:50 (GetEAPath) \"Get EA path for ") + mode.eaName + " failed\""}}));
  }
}

TEST_F(StoredModes, NeverAnswerAnImageWithoutFactsFromTheBrovixEntry) {
  Store(source, "TAVIFILE_THUMB_B.jpg", 2000);
  job.Info().good_ = false;
  EXPECT_FALSE(job.SetOutBrovixEA());
  EXPECT_EQ(job.GetOutputFile(), "");
  EXPECT_EQ(platform.calls, Calls{EAPath(source, "TAVIFILE_THUMB_B.jpg")});
  job.Info().heic_ = true;
  EXPECT_TRUE(job.SetOutBrovixEA());
}

TEST_F(StoredModes, AnswerAVideoWithoutFactsFromTheBrovixEntry) {
  const std::string video = Source("clip.mp4");
  const std::string entry = Store(video, "TAVIFILE_THUMB_B.jpg", 2000);
  OpenThumb videoJob(video, 0, false);
  SetRequest(&videoJob, "big");
  EXPECT_TRUE(videoJob.SetOutBrovixEA());
  EXPECT_EQ(videoJob.GetOutputFile(), entry);
  EXPECT_EQ(videoJob.GetOutputType(), "Brovix");
}

TEST_F(StoredModes, ReportAnAvatarAsABrovixThumbnail) {
  Store(source, "TAVIAVATAR_640x640.jpg", 2000);
  EXPECT_TRUE(job.SetOutAvatar());
  EXPECT_EQ(job.GetOutputType(), "Brovix");
}

TEST_F(StoredModes, TheSourceItselfIsNotCheckedAndChangesNoType) {
  RealUnlink(source.c_str());
  EXPECT_TRUE(job.SetOutOriginalImage());
  EXPECT_EQ(job.GetOutputFile(), source);
  EXPECT_EQ(job.type_, 3);
  EXPECT_EQ(platform.calls, Calls{});
}

}  // namespace
}  // namespace tavithumb::test
