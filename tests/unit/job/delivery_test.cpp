// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "job_fixture.h"
#include "pictures.h"

namespace tavithumb::test {
namespace {

constexpr char cachingLine[] = "Cache-Control: max-age=300, must-revalidate\r\n";

// Redirects standard output to a file while this lives.
class CapturedOutput {
 public:
  explicit CapturedOutput(const std::string& path) : path_(path) {
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDOUT_FILENO);
    close(file);
  }
  ~CapturedOutput() {
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  std::string Text() const {
    std::fflush(stdout);
    return ReadFile(path_);
  }

 private:
  std::string path_;
  int saved_;
};

class Delivery : public JobTest {
 protected:
  Delivery() : source(Source("a.jpg")), job(source, 0, false) {
    platform.onOutput = [this] { writtenBefore = ReadAll(); };
  }
  ~Delivery() override {
    for (std::FILE* stream : platform.opened) std::fclose(stream);
  }

  // Runs a delivery and captures standard output: all that was written,
  // and what was written before the outputer was called.
  template <typename Work>
  bool Deliver(const Work& work) {
    const CapturedOutput output(folder / "output");
    writtenBefore = "outputer not called";
    const bool result = work();
    written = output.Text();
    return result;
  }
  std::string ReadAll() const {
    std::fflush(stdout);
    return ReadFile(folder / "output");
  }
  static PlatformCall ByPath(const std::string& path, const std::string& mimeType) {
    return {"HTTPFileOutputer::Output(path)", path, mimeType};
  }

  const std::string source;
  std::string written;
  std::string writtenBefore;
  OpenThumb job;
};

TEST_F(Delivery, WritesTheCachingLineAndThenPassesTheFileOn) {
  job.outputFile_ = "/answer";
  EXPECT_TRUE(Deliver([&] { return job.HttpOutputFile("image/png"); }));
  EXPECT_EQ(written, cachingLine);
  EXPECT_EQ(writtenBefore, cachingLine);
  EXPECT_EQ(platform.calls, (Calls{ByPath("/answer", "image/png")}));
}

TEST_F(Delivery, FailsWhenTheOutputerFails) {
  platform.outputResult = -1;
  job.outputFile_ = "/answer";
  EXPECT_FALSE(Deliver([&] { return job.HttpOutputFile("image/png"); }));
  EXPECT_EQ(written, cachingLine);
}

TEST_F(Delivery, RotatesAnAlbumexThumbnailByTheUsersRotationDuringDelivery) {
  const std::pair<int, const char*> rows[] = {{1, "90"}, {2, "180"}, {3, "270"}, {5, "90"}, {-1, "-90"}};
  for (const auto& [turns, degrees] : rows) {
    SCOPED_TRACE(turns);
    platform.calls.clear();
    const std::size_t before = Names("/proc/self/fd").size();
    job.type_ = 1;
    job.outputFile_ = "/ea/albumex.jpg";
    job.Info().rotate_ = 2;  // the thumbnail is stored auto-oriented: not rotated again
    job.Rotate(turns);
    EXPECT_TRUE(Deliver([&] { return job.HttpOutputFile("image/jpeg"); }));
    EXPECT_EQ(written, cachingLine);
    EXPECT_EQ(writtenBefore, cachingLine);
    EXPECT_EQ(platform.calls, (Calls{{"TLIBCPopenv", "/usr/bin/jpegtran", "r", "/usr/bin/jpegtran", "-trim", "-rotate",
                                      degrees, "/ea/albumex.jpg"},
                                     {"HTTPFileOutputer::Output(stream)", "open", "albumex.jpg", "image/jpeg"}}));
    EXPECT_EQ(platform.closed, std::vector<std::FILE*>{});  // by design
    EXPECT_EQ(Names("/proc/self/fd").size(), before + 1);
  }
}

TEST_F(Delivery, DeliversAnAlbumexThumbnailDirectlyForFullRotations) {
  for (const int turns : {0, 4, -4, 8}) {
    SCOPED_TRACE(turns);
    platform.calls.clear();
    job.type_ = 1;
    job.outputFile_ = "/ea/albumex.jpg";
    job.Rotate(turns);
    EXPECT_TRUE(Deliver([&] { return job.HttpOutputFile("image/jpeg"); }));
    EXPECT_EQ(platform.calls, (Calls{ByPath("/ea/albumex.jpg", "image/jpeg")}));
  }
}

TEST_F(Delivery, RotatesEvenTheSourceOnAJobThatLastFoundAnAlbumexThumbnail) {
  SetFacts(&job, 10, 10);
  job.type_ = 1;
  job.Rotate(3);
  EXPECT_TRUE(Deliver([&] { return job.OutputOriginalImage(); }));
  EXPECT_EQ(written, cachingLine);
  EXPECT_EQ(platform.calls,
            (Calls{{"TLIBCPopenv", "/usr/bin/jpegtran", "r", "/usr/bin/jpegtran", "-trim", "-rotate", "270", source},
                   {"HTTPFileOutputer::Output(stream)", "open", "a.jpg", "image/jpeg"}}));
}

TEST_F(Delivery, RotatesNoOtherType) {
  for (const int type : {0, 2, 3, 4, 5}) {
    SCOPED_TRACE(type);
    platform.calls.clear();
    job.type_ = type;
    job.outputFile_ = "/answer";
    job.Rotate(1);
    EXPECT_TRUE(Deliver([&] { return job.HttpOutputFile("image/jpeg"); }));
    EXPECT_EQ(platform.calls, (Calls{ByPath("/answer", "image/jpeg")}));
  }
}

TEST_F(Delivery, FailsWhenTheRotationCannotBeStartedOrDelivered) {
  job.type_ = 1;
  job.outputFile_ = "/ea/albumex.jpg";
  job.Rotate(1);
  platform.outputResult = 1;
  EXPECT_FALSE(Deliver([&] { return job.HttpOutputFile("image/jpeg"); }));
  platform.outputResult = 0;
  platform.calls.clear();
  platform.open = [](const std::string&, const std::vector<std::string>&) -> std::FILE* { return nullptr; };
  EXPECT_FALSE(Deliver([&] { return job.HttpOutputFile("image/jpeg"); }));
  EXPECT_EQ(written, cachingLine);
  EXPECT_EQ(platform.calls.size(), 1u);  // nothing is passed on
}

class DeliveryOfPng : public Delivery {
 protected:
  DeliveryOfPng() : png(folder / "a.png") {
    MakePng(png, 300, 200);
    SetTimes(png, 900, 1000);
  }
  const std::string png;
};

TEST_F(DeliveryOfPng, OfANamedSizeDeliversTheAnswerWithItsType) {
  const std::string entry = Store(png, "TAVIFILE_THUMB_S.png", 1000);
  OpenThumb named(png, 2, false);
  EXPECT_TRUE(Deliver([&] { return named.Output("small"); }));
  EXPECT_EQ(written, cachingLine);
  EXPECT_EQ(platform.Calls("HTTPFileOutputer::Output(path)"), (Calls{ByPath(entry, "image/png")}));
  EXPECT_EQ(named.info_.GetSize(), "small");
}

TEST_F(DeliveryOfPng, RotatesTheAlbumexThumbnailItFindsByTheUsersRotation) {
  const std::string entry = Store(png, "TAVIPHOTO_THUMB_S.png", 1000);
  OpenThumb turned(png, 1, false);
  turned.Rotate(2);
  EXPECT_TRUE(Deliver([&] { return turned.Output("small"); }));
  EXPECT_EQ(written, cachingLine);
  EXPECT_EQ(platform.calls,
            (Calls{EAPath(png, "TAVIPHOTO_THUMB_S.png"),
                   {"TLIBCPopenv", "/usr/bin/jpegtran", "r", "/usr/bin/jpegtran", "-trim", "-rotate", "180", entry},
                   {"HTTPFileOutputer::Output(stream)", "open", "TAVIPHOTO_THUMB_S.png", "image/png"}}));
}

TEST_F(DeliveryOfPng, ReportsAFailureOfTheOutputer) {
  Store(png, "TAVIFILE_THUMB_S.png", 1000);
  Store(png, "TAVIFILE_THUMB_120x120.png", 1000);
  platform.outputResult = -1;
  OpenThumb named(png, 2, false);
  EXPECT_FALSE(Deliver([&] { return named.Output("small"); }));
  EXPECT_FALSE(Deliver([&] { return named.Output(120); }));
  EXPECT_FALSE(Deliver([&] { return named.OutputOriginalImage(); }));
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(DeliveryOfPng, WritesNothingWhenThereIsNoAnswer) {
  OpenThumb none(png, 2 | 4, false);
  EXPECT_FALSE(Deliver([&] { return none.Output("small"); }));
  EXPECT_EQ(written, "");
  EXPECT_EQ(platform.Calls("HTTPFileOutputer::Output(path)"), Calls{});
}

TEST_F(DeliveryOfPng, DoesNotFallBackToSmallerSizes) {
  Store(png, "TAVIFILE_THUMB_S.png", 1000);
  OpenThumb named(png, 2 | 4 | 0x40, false);
  EXPECT_FALSE(Deliver([&] { return named.Output("big"); }));
  EXPECT_EQ(written, "");
}

TEST_F(DeliveryOfPng, ThrowsOnAnUnknownSizeBeforeAnythingIsWritten) {
  OpenThumb named(png, 2, false);
  Deliver([&] {
    try {
      named.Output("huge");
      ADD_FAILURE();
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "map::at");
    }
    return false;
  });
  EXPECT_EQ(written, "");
  EXPECT_EQ(named.info_.GetSize(), "huge");
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(DeliveryOfPng, OfABoxAsksForTheCustomSize) {
  const std::string entry = Store(png, "TAVIFILE_THUMB_50x60.png", 1000);
  OpenThumb box(png, 2, false);
  EXPECT_TRUE(Deliver([&] { return box.Output(50, 60); }));
  EXPECT_EQ(box.info_.GetSize(), "__CUSTOM_SIZE__");
  EXPECT_EQ(box.info_.GetDimension(), (ThumbDimension{50, 60}));
  EXPECT_EQ(platform.Calls("HTTPFileOutputer::Output(path)"), (Calls{ByPath(entry, "image/png")}));
}

TEST_F(DeliveryOfPng, OfASideAsksForASquareBox) {
  const std::string entry = Store(png, "TAVIFILE_THUMB_200x200.png", 1000);
  OpenThumb side(png, 2, false);
  EXPECT_TRUE(Deliver([&] { return side.Output(200); }));
  EXPECT_EQ(side.info_.GetSize(), "__CUSTOM_SIZE__");
  EXPECT_EQ(side.info_.GetDimension(), (ThumbDimension{200, 200}));
  EXPECT_EQ(side.GetOutputFile(), entry);
}

TEST_F(DeliveryOfPng, AcceptsAnyNumbersForABox) {
  OpenThumb box(png, 2 | 4, false);
  Deliver([&] { return box.Output(-1, 0); });
  EXPECT_EQ(box.info_.GetDimension(), (ThumbDimension{4294967295u, 0}));
}

TEST_F(DeliveryOfPng, OfANewJobsRequestDeliversTheOriginal) {
  OpenThumb request(png, 2, false);
  EXPECT_TRUE(Deliver([&] { return request.OutputImpl(); }));
  EXPECT_EQ(platform.calls, (Calls{ByPath(png, "image/png")}));
}

TEST_F(DeliveryOfPng, OfTheOriginalImagePassesOnTheSourcesOwnType) {
  OpenThumb original(source, 0, false);
  SetFacts(&original, 10, 10, "image/x-ms-bmp");
  original.type_ = 3;
  EXPECT_TRUE(Deliver([&] { return original.OutputOriginalImage(); }));
  EXPECT_EQ(written, cachingLine);
  EXPECT_EQ(original.GetOutputFile(), source);
  EXPECT_EQ(original.type_, 3);
  EXPECT_EQ(platform.calls, (Calls{ByPath(source, "image/x-ms-bmp")}));
}

TEST_F(DeliveryOfPng, OfAnOriginalThatBrowsersCannotShowWritesNothing) {
  OpenThumb original(source, 0, false);
  SetFacts(&original, 10, 10, "image/tiff");
  original.outputFile_ = "/earlier";
  EXPECT_FALSE(Deliver([&] { return original.OutputOriginalImage(); }));
  EXPECT_EQ(written, "");
  EXPECT_EQ(original.GetOutputFile(), "/earlier");
  EXPECT_EQ(platform.calls, Calls{});
}

TEST_F(DeliveryOfPng, ThrowsOnADamagedSourceBeforeAnythingIsWritten) {
  WriteFile(folder / "short.jpg", "");
  OpenThumb damaged(folder / "short.jpg", 2, false);
  Deliver([&] {
    EXPECT_THROW(damaged.Output("small"), Error);
    return false;
  });
  EXPECT_EQ(written, "");
}

}  // namespace
}  // namespace tavithumb::test
