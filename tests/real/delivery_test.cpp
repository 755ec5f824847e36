// SPDX-License-Identifier: GPL-3.0-or-later
// Whole HTTP responses, read from a pipe that is the standard output of a process that answers one request.
#include <fcntl.h>

#include "real_support.h"

namespace tavithumb::test {
namespace {

const std::string kCaching = "Cache-Control: max-age=300, must-revalidate\r\n";

struct Response {
  std::string text;
  bool delivered;
};

class Delivery : public RealTest {
 protected:
  // Runs `serve` with a pipe as its standard output.
  static Response Serve(const std::function<bool()>& serve) {
    int pipeEnds[2];
    EXPECT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      dup2(pipeEnds[1], STDOUT_FILENO);
      int result = 2;
      try {
        result = serve() && !HasFailure() ? 0 : 1;
      } catch (const std::exception&) {
      }
      std::fflush(stdout);
      _exit(result);
    }
    close(pipeEnds[1]);
    std::string text;
    char block[4096];
    for (ssize_t got; (got = read(pipeEnds[0], block, sizeof block)) > 0;)
      text.append(block, static_cast<std::size_t>(got));
    close(pipeEnds[0]);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 2) << status;
    return {text, status == 0};
  }

  static void ExpectFile(const Response& response, const std::string& mimeType, const std::string& file) {
    const std::string body = ReadFile(file);
    EXPECT_FALSE(body.empty()) << file;
    EXPECT_TRUE(response.delivered);
    // Not as one comparison, which would print the whole picture.
    EXPECT_TRUE(response.text == kCaching + "Content-Type: " + mimeType +
                                     "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body)
        << response.text.substr(0, 200);
  }

  static void ExpectNothing(const Response& response) {
    EXPECT_FALSE(response.delivered);
    EXPECT_EQ(response.text, "");
  }

  // A source with an Albumex thumbnail of 320 x 208 pixels: whole blocks, so that every rotation is lossless.
  std::string WithAlbumexThumbnail() const {
    const std::string source = Source("a.jpg");
    MakeJpeg(source, 640, 416);
    Dated(source);
    std::filesystem::create_directories(EAEntry(source, ""));
    MakeJpeg(AlbumexThumbnail(source), 320, 208);
    return source;
  }

  static std::string AlbumexThumbnail(const std::string& source) { return EAEntry(source, "TAVIPHOTO_THUMB_M.jpg"); }
};

TEST_F(Delivery, ANamedSizeIsMadeStoredAndWritten) {
  const std::string source = Source("a.png");
  MakePng(source, 600, 400);
  Dated(source);
  const Response response = Serve([&] { return Thumb(source, Thumb::OPT_BROVIX_EA, false).Output("small"); });
  ExpectFile(response, "image/png", EAEntry(source, "TAVIFILE_THUMB_S.png"));
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_S.png"), "PNG", 120, 80);
}

TEST_F(Delivery, AFileLargerThanAPipeIsWrittenCompletely) {
  const std::string source = Jpeg("a.jpg", 1800, 1200, 7000000);
  const Response response = Serve([&] { return Thumb(source, Thumb::OPT_BROVIX_EA, false).Output("xlarge"); });
  ExpectFile(response, "image/jpeg", EAEntry(source, "TAVIFILE_THUMB_XL.jpg"));
  EXPECT_GT(response.text.size(), 6000000u);
}

TEST_F(Delivery, AnExplicitBoxIsMadeStoredAndWritten) {
  const std::string source = Source("a.png");
  MakePng(source, 600, 400);
  Dated(source);
  ExpectFile(Serve([&] { return Thumb(source, 0, false).Output(300, 100); }), "image/png",
             EAEntry(source, "TAVIFILE_THUMB_300x100.png"));
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_300x100.png"), "PNG", 150, 100);
  ExpectFile(Serve([&] { return Thumb(source, 0, false).Output(200); }), "image/png",
             EAEntry(source, "TAVIFILE_THUMB_200x200.png"));
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_200x200.png"), "PNG", 200, 133);
}

TEST_F(Delivery, EverySourceTypeIsWrittenWithTheTypeOfItsThumbnail) {
  MakeBmp(Source("a.bmp"), 600, 400);
  MakeTiff(Source("a.tif"), 600, 400);
  MakeGif(Source("a.gif"), 600, 400, 3);
  MakeHeic(Source("a.heic"), 600, 400, true);
  MakeJpeg(directory_ / "preview.jpg", 240, 160);
  MakeRaf(Source("a.raf"), directory_ / "preview.jpg");
  for (const char* name : {"a.bmp", "a.tif", "a.gif", "a.heic", "a.raf"}) {
    SCOPED_TRACE(name);
    const std::string source = Dated(Source(name));
    const bool gif = source == Source("a.gif");
    const Response response = Serve([&] { return Thumb(source, Thumb::OPT_ENABLE_GIF, false).Output("small"); });
    ExpectFile(response, gif ? "image/gif" : "image/jpeg",
               EAEntry(source, gif ? "TAVIFILE_THUMB_S.gif" : "TAVIFILE_THUMB_S.jpg"));
  }
}

TEST_F(Delivery, AVideosScreenshotIsWritten) {
  const std::string source = Source("movie.mp4");
  WriteFile(source, "no video at all");
  Dated(source);
  std::filesystem::create_directories(EAEntry(source, ""));
  MakeJpeg(EAEntry(source, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"), 300, 200);
  ExpectFile(Serve([&] { return Thumb(source, 0, false).Output("big"); }), "image/jpeg",
             EAEntry(source, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"));
}

TEST_F(Delivery, TheOriginalIsWrittenWithItsOwnType) {
  MakeBmp(Source("a.bmp"), 60, 40);
  MakeGif(Source("a.gif"), 60, 40, 2);
  for (const auto& [name, mimeType] : {std::pair("a.bmp", "image/x-ms-bmp"), std::pair("a.gif", "image/gif")}) {
    SCOPED_TRACE(name);
    const std::string source = Source(name);
    ExpectFile(Serve([&] {
                 Thumb job(source, 0, false);
                 job.CalcOutputFile("original");  // reads the facts
                 return job.OutputOriginalImage();
               }),
               mimeType, source);
    // Requested as a size, it is sent with the type of its thumbnails.
    ExpectFile(Serve([&] { return Thumb(source, 0, false).Output("original"); }), "image/jpeg", source);
  }
}

TEST_F(Delivery, NothingIsWrittenWithoutAnAnswer) {
  MakeTiff(Source("a.tif"), 60, 40);
  MakePng(Source("a.png"), 300, 200);
  ExpectNothing(Serve([&] { return Thumb(Source("a.tif"), 0, false).Output("original"); }));
  ExpectNothing(Serve([&] { return Thumb(Source("a.png"), Thumb::OPT_NO_CONVERT, false).Output("small"); }));
  ExpectNothing(Serve([&] { return Thumb(Source("a.png"), 0, false).OutputOriginalImage(); }));  // no facts read
  ExpectNothing(Serve([&] {
    Thumb job(Source("a.tif"), 0, false);
    job.CalcOutputFile("original");
    return job.OutputOriginalImage();
  }));
  ExpectNothing(Serve([&] {
    EXPECT_THROW(Thumb(Source("a.png"), 0, false).Output("huge"), std::out_of_range);
    return false;
  }));
}

TEST_F(Delivery, TheCachingLineIsWrittenEvenWhenTheFileIsGone) {
  MakePng(Source("a.png"), 300, 200);
  const Response response = Serve([&] {
    Thumb job(Source("a.png"), 0, false);
    job.CalcOutputFile("original");
    unlink(Source("a.png").c_str());
    return job.HttpOutputFile("image/png");
  });
  EXPECT_FALSE(response.delivered);
  EXPECT_EQ(response.text, kCaching);
}

TEST_F(Delivery, AnAlbumexThumbnailIsWrittenDirectlyWithoutAUserRotation) {
  const std::string source = WithAlbumexThumbnail();
  for (const int turns : {0, 4, -4, 8}) {
    SCOPED_TRACE(turns);
    ExpectFile(Serve([&] {
                 Thumb job(source, Thumb::OPT_ALBUMEX_EA, false);
                 job.Rotate(turns);
                 return job.Output("medium");
               }),
               "image/jpeg", AlbumexThumbnail(source));
  }
}

// The orientation of the source is ignored: Albumex thumbnails are stored auto-oriented.
TEST_F(Delivery, AnAlbumexThumbnailIsRotatedDuringDeliveryAndItsFileIsUnchanged) {
  const std::string source = WithAlbumexThumbnail();
  SetExif(source, {{"Exif.Image.Orientation", "6"}});
  Dated(source);
  const std::string stored = ReadFile(AlbumexThumbnail(source));
  for (const int turns : {1, 2, 3, 5}) {
    SCOPED_TRACE(turns);
    const Response response = Serve([&] {
      Thumb job(source, Thumb::OPT_ALBUMEX_EA, false);
      job.Rotate(turns);
      return job.Output("medium");
    });
    const std::string headers = kCaching + "Content-Type: image/jpeg\r\n\r\n";
    EXPECT_TRUE(response.delivered);
    ASSERT_EQ(response.text.substr(0, headers.size()), headers);
    const std::string turned = directory_ / "turned.jpg";
    WriteFile(turned, response.text.substr(headers.size()));
    ExpectPicture(turned, "JPEG", turns == 2 ? 320 : 208, turns == 2 ? 208 : 320);
    RunTool({"/usr/bin/convert", AlbumexThumbnail(source), "-rotate", std::to_string(turns % 4 * 90),
             directory_ / "expected.png"});
    EXPECT_LT(Difference(turned, directory_ / "expected.png"), 0.01);
  }
  EXPECT_EQ(ReadFile(AlbumexThumbnail(source)), stored);
}

TEST_F(Delivery, ARotationDuringDeliveryLeavesItsPipeAndChildToTheProcess) {
  const std::string source = WithAlbumexThumbnail();
  const Response response = Serve([&] {
    const std::size_t before = OpenDescriptors();
    Thumb job(source, Thumb::OPT_ALBUMEX_EA, false);
    job.Rotate(1);
    if (!job.Output("medium")) return false;
    return OpenDescriptors() == before + 1 && waitpid(-1, nullptr, 0) > 0 && !HasChildren();
  });
  EXPECT_TRUE(response.delivered);
}

TEST_F(Delivery, ANewlyRotatedThumbnailIsWrittenAsStored) {
  const std::string source = Source("a.png");
  MakePng(source, 600, 400);
  Dated(source);
  const Response response = Serve([&] {
    Thumb job(source, Thumb::OPT_ALBUMEX_EA | Thumb::OPT_BROVIX_EA, false);
    job.Rotate(1);
    return job.Output("small");
  });
  ExpectFile(response, "image/png", EAEntry(source, "TAVIFILE_THUMB_S_r1.png"));
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_S_r1.png"), "PNG", 80, 120);
}

TEST_F(Delivery, AReaderThatDisconnectsIsAFailureAndDoesNotKillTheProcess) {
  const std::string source = Jpeg("a.jpg", 1800, 1200, 7000000);
  Ask(source, "xlarge");
  int pipeEnds[2];
  ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
  close(pipeEnds[0]);
  EXPECT_EQ(StatusOfChild([&] {
              dup2(pipeEnds[1], STDOUT_FILENO);
              return Thumb(source, Thumb::OPT_BROVIX_EA, false).Output("xlarge") ? 1 : 0;
            }),
            0);
  close(pipeEnds[1]);
}

}  // namespace
}  // namespace tavithumb::test
