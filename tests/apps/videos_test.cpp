// SPDX-License-Identifier: GPL-3.0-or-later
// Thumbnails of videos: `get` and `make` with real films.
#include <films.h>
#include <linux/landlock.h>
#include <pictures.h>
#include <signal.h>
#include <sys/syscall.h>

#include <chrono>
#include <filesystem>

#include "batch.h"
#include "system/clock.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

class Videos : public Batch {
 protected:
  void SetUp() override {
    if (!HasFilmTools()) GTEST_SKIP() << "needs ffmpeg and ffmpegthumbnailer";
    MakeJpeg(scene, 640, 480);
  }

  void TearDown() override { fs::remove(runs); }

  static std::string Entry(const std::string& video, const std::string& letter) {
    return EntryOf(video, "TAVIFILE_THUMB_" + letter + ".jpg");
  }

  static std::string SizeOf(const std::string& picture) {
    const PictureFacts facts = Identify(picture);
    return facts.format + " " + std::to_string(facts.width) + "x" + std::to_string(facts.height);
  }

  void ExpectShows(const std::string& video, const std::string& picture, double most = 0.03) const {
    const Outcome outcome = run({"get", "--size", "medium", video});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(outcome.out, Entry(video, "M") + "\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_LT(Difference(Entry(video, "M"), picture), most) << video;
  }

  void ExpectNone(const std::string& video) const {
    const Outcome outcome = run({"get", video});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "tavithumb: " + Replaced(video, "\n", "\\n") +
                               ": no still could be taken of this video; check that it plays in another program\n");
    EXPECT_EQ(Names(EntryOf(video, "")), Strings{});
  }

  Start WithProbe(const std::string& behaviour = "") const {
    WriteFile(runs, "");
    Start start;
    start.environment = Preloading(STILL_PROBE);
    start.environment.insert(start.environment.end(), {"PROBE_FILE=" + runs, "PROBE_STILLS=" + behaviour});
    return start;
  }

  // Of the tools, as the probe has seen them since WithProbe().
  std::size_t Runs() const {
    const std::string lines = ReadFile(runs);
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n'));
  }

  // The tools may write no file in another folder, and create none here.
  const std::string runs = "/dev/shm/tavithumb-stills-" + std::to_string(getpid());
  const std::string scene = folder / "scene.jpg";
  const std::string film = folder / "films/film.mp4";
  const Strings all = {"TAVIFILE_THUMB_B.jpg", "TAVIFILE_THUMB_M.jpg", "TAVIFILE_THUMB_S.jpg", "TAVIFILE_THUMB_XL.jpg"};
};

TEST_F(Videos, HaveAThumbnailOfEachSizeFromOneRunOfTheTool) {
  fs::create_directory(folder / "films");
  MakeFilm(film, scene, 10);
  const Outcome outcome = run({"make", "--eager", folder / "films"}, WithProbe());
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(Names(EntryOf(film, "")), all);
  EXPECT_EQ(SizeOf(Entry(film, "S")), "JPEG 120x90");
  EXPECT_EQ(SizeOf(Entry(film, "B")), "JPEG 640x480");
  EXPECT_EQ(SizeOf(Entry(film, "XL")), "JPEG 640x480");
  for (const char* size : {"S", "M", "B", "XL"}) {
    EXPECT_LT(Difference(Entry(film, size), scene), 0.03) << size;
    EXPECT_EQ(ModificationTime(Entry(film, size)), ModificationTime(film)) << size;
  }
  EXPECT_EQ(ReadFile(runs).find("/usr/bin/ffmpegthumbnailer "), 0u);
  EXPECT_EQ(Runs(), 1u);

  const Outcome again = run({"make", "--eager", folder / "films"}, WithProbe());
  EXPECT_EQ(WithoutTime(again.out), Table({"1", "0", "0", "5", "0", "0"}));
  EXPECT_EQ(Runs(), 0u);
  const Outcome got = run({"get", "--size", "large", film}, WithProbe());
  EXPECT_EQ(got.out, Entry(film, "XL") + "\n");
  EXPECT_EQ(Runs(), 0u);
}

TEST_F(Videos, AreRenderedAsAStill) {
  fs::create_directory(folder / "films");
  MakeFilm(film, scene, 2);
  const std::string out = folder / "out.png";
  const Outcome outcome = run({"render", "--size", "320", film, out});
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(SizeOf(out), "PNG 320x240");
  EXPECT_LT(Difference(out, scene), 0.03);
  WriteFile(film, "no film");
  fs::remove(out);
  const Outcome refused = run({"render", film, out});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err,
            "tavithumb: " + film + ": no still could be taken of this video; check that it plays in another program\n");
  EXPECT_FALSE(Exists(out));
}

TEST_F(Videos, AreLeftOutOfABatchOnRequest) {
  fs::create_directory(folder / "films");
  MakeFilm(film, scene, 2);
  std::string table = Table({"0", "0", "0", "0", "0", "0"});
  table.insert(table.find("failed"), "passed over            1  files: 1 mp4\n");
  EXPECT_EQ(WithoutTime(run({"make", "--eager", "--no-videos", folder / "films"}).out), table);
  EXPECT_EQ(run({"make", "--eager", "--library", folder / "films"}).code, 0);
  EXPECT_EQ(Names(EntryOf(film, "")), Strings{});
}

TEST_F(Videos, AreShownPastBlackFrames) {
  MakeFilmThatStartsBlack(folder / "early.mp4", scene, 2, 10);
  MakeFilmThatStartsBlack(folder / "late.mp4", scene, 6, 10);
  for (const auto& [name, count] :
       std::vector<std::pair<const char*, std::size_t>>{{"early.mp4", 2}, {"late.mp4", 4}}) {
    run({"get", folder / name}, WithProbe());
    EXPECT_EQ(Runs(), count) << name;
    ExpectShows(folder / name, scene);
  }
}

TEST_F(Videos, ThatAreBlackThroughoutHaveABlackThumbnail) {
  MakeFilmThatStartsBlack(folder / "night.mp4", scene, 10, 10);
  RunTool({"/usr/bin/convert", scene, "-fill", "black", "-colorize", "100", folder / "black.png"});
  ExpectShows(folder / "night.mp4", folder / "black.png");
}

TEST_F(Videos, AreUprightWhateverTheirOrientation) {
  MakeFilm(folder / "turned.mp4", scene, 2);
  TurnFilm(folder / "turned.mp4");
  RunTool({"/usr/bin/convert", scene, "-rotate", "90", folder / "upright.png"});
  ExpectShows(folder / "turned.mp4", folder / "upright.png");
  EXPECT_EQ(SizeOf(Entry(folder / "turned.mp4", "M")), "JPEG 270x360");
  run({"get", "--rotate", "1", "--size", "medium", folder / "turned.mp4"});
  EXPECT_EQ(SizeOf(EntryOf(folder / "turned.mp4", "TAVIFILE_THUMB_M_r1.jpg")), "JPEG 360x270");
}

TEST_F(Videos, AreShownByTheirCover) {
  MakeFilm(folder / "plain.mp4", scene, 2);
  RunTool({"/usr/bin/convert", scene, "-negate", "-resize", "200x150!", folder / "cover.jpg"});
  for (const char* name : {"covered.mp4", "covered.mkv"}) {
    AddCover(folder / "plain.mp4", folder / "cover.jpg", folder / name);
    ExpectShows(folder / name, folder / "cover.jpg");
    EXPECT_EQ(SizeOf(Entry(folder / name, "M")), "JPEG 200x150") << name;
  }
}

TEST_F(Videos, InHdrHaveTheColoursOfThePicture) {
  for (const char* transfer : {"smpte2084", "arib-std-b67"}) {
    for (const char* type : {".mp4", ".mkv"}) {
      const std::string path = folder / (std::string(transfer) + type);
      MakeHdrFilm(path, scene, transfer);
      ExpectShows(path, scene, 0.04);
    }
  }
}

TEST_F(Videos, MayHaveAnyName) {
  const std::string names[] = {"-v.mp4", "a:b.mp4", "new\nline.mp4", "%03d.mp4", "http:x.mp4", "sp ace'\".mp4"};
  MakeFilm(folder / "film.mp4", scene, 2);
  for (const std::string& name : names) {
    fs::copy_file(folder / "film.mp4", folder / name);
    const Outcome outcome = run({"get", "--size", "small", "--", name}, In(folder.Path()));
    EXPECT_EQ(outcome.out, Entry(folder / name, "S") + "\n") << outcome;
    EXPECT_EQ(outcome.err, "");
  }
}

TEST_F(Videos, WithAnUpToDateScreenshotGetNoThumbnail) {
  MakeFilm(folder / "film.mp4", scene, 2);
  const std::string screenshot = EntryOf(folder / "film.mp4", "TAVIVIDEO_VIDEO_SCREENSHOT.jpg");
  fs::create_directories(fs::path(screenshot).parent_path());
  fs::copy_file(scene, screenshot);
  const Outcome made = run({"make", "--eager", folder / "film.mp4"}, WithProbe());
  EXPECT_EQ(WithoutTime(made.out), Table({"1", "0", "0", "5", "0", "0"}));
  EXPECT_EQ(run({"get", folder / "film.mp4"}, WithProbe()).out, screenshot + "\n");
  EXPECT_EQ(Runs(), 0u);
  EXPECT_EQ(Names(EntryOf(folder / "film.mp4", "")), Strings{"TAVIVIDEO_VIDEO_SCREENSHOT.jpg"});

  SetTimes(screenshot, 1, ModificationTime(folder / "film.mp4") - 1);
  EXPECT_EQ(run({"make", "--eager", folder / "film.mp4"}).code, 0);
  EXPECT_EQ(Names(EntryOf(folder / "film.mp4", "")).size(), 5u);
}

TEST_F(Videos, ThatAreBrokenFailWithOneLine) {
  MakeFilm(folder / "whole.mp4", scene, 4);
  fs::copy_file(folder / "whole.mp4", folder / "cut.mp4");
  fs::resize_file(folder / "cut.mp4", fs::file_size(folder / "cut.mp4") / 2);
  WriteFile(folder / "empty.mkv", "");
  WriteFile(folder / "text.avi", "This is not a film.\n");
  MakeFilm(folder / "sound.mp4", scene, 1);
  RunTool({"/usr/bin/ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "sine=d=1", folder / "sound.mp4"});
  for (const char* name : {"cut.mp4", "empty.mkv", "text.avi", "sound.mp4"}) ExpectNone(folder / name);
}

TEST_F(Videos, ThatListOtherFilesShowNothingOfThem) {
  if (syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 1) {
    GTEST_SKIP() << "needs a kernel with Landlock";
  }
  MakeFilm(folder / "secret.mp4", scene, 2);
  WriteFile(folder / "list.mp4", "ffconcat version 1.0\nfile secret.mp4\n");
  WriteFile(folder / "stream.mp4",
            "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nfile://" + (folder / "secret.mp4") + "\n#EXT-X-ENDLIST\n");
  RunTool({"/usr/bin/ffmpegthumbnailer", "-i", folder / "list.mp4", "-o", folder / "proof.jpg"});  // the tool does
  EXPECT_GT(fs::file_size(folder / "proof.jpg"), 0u);
  for (const char* name : {"list.mp4", "stream.mp4"}) ExpectNone(folder / name);
}

TEST_F(Videos, NeedATool) {
  fs::create_directory(folder / "films");
  MakeFilm(film, scene, 2);
  fs::copy_file(film, folder / "films/other.mp4");
  const std::string reason = "stills of videos need ffmpegthumbnailer, which is not installed";
  const std::string remedy = "install the package ffmpegthumbnailer";
  const Outcome got = run({"get", film}, WithProbe("missing"));
  EXPECT_EQ(got.code, 1);
  EXPECT_EQ(got.err, "tavithumb: " + film + ": " + reason + "; " + remedy + "\n");

  const Outcome made = run({"make", "--eager", folder / "films"}, WithProbe("missing"));
  EXPECT_EQ(made.code, 0);
  EXPECT_EQ(made.err, "tavithumb: videos are left out: " + reason + "; " + remedy + ", or add --no-videos\n");
  EXPECT_EQ(run({"make", "--eager", "--no-videos", folder / "films"}, WithProbe("missing")).err, "");
  EXPECT_EQ(run({"make", "--eager", film}, WithProbe("missing")).code, 1);
}

TEST_F(Videos, ThatCannotBeReadFailWithTheReason) {
  if (const std::string reason = CommandRunner::WhyNotAs(kNobody); !reason.empty()) GTEST_SKIP() << reason;
  MakeFilm(folder / "film.mp4", scene, 2);
  fs::permissions(folder.Path(), fs::perms::all);
  fs::permissions(folder / "film.mp4", fs::perms::owner_read);
  const Outcome outcome = run({"get", folder / "film.mp4"}, As(kNobody));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err,
            "tavithumb: " + (folder / "film.mp4") + ": permission denied; ask its owner for read permission\n");
}

TEST_F(Videos, OfGigabytesTakeNoLonger) {
  MakeFilm(folder / "film.mp4", scene, 10, {"-movflags", "+faststart"});
  const auto size = fs::file_size(folder / "film.mp4");
  constexpr std::uint64_t gigabytes = std::uint64_t{4} << 30;
  std::string box("\0\0\0\1free", 8);
  for (int shift = 56; shift >= 0; shift -= 8) box += static_cast<char>(gigabytes >> shift & 255);
  WriteFile(folder / "film.mp4", ReadFile(folder / "film.mp4") + box);
  fs::resize_file(folder / "film.mp4", size + gigabytes);
  const auto start = apps::Clock::now();
  ExpectShows(folder / "film.mp4", scene);
  EXPECT_LT(apps::Clock::now() - start, std::chrono::seconds(5));
}

TEST_F(Videos, OfTheSamplesHaveThumbnails) {
  const fs::path samples = fs::path(SamplesFolder()) / "../samples-more/video";
  if (SamplesFolder().empty() || !fs::exists(samples)) GTEST_SKIP() << "needs the samples";
  fs::create_directory(folder / "films");
  for (const fs::directory_entry& sample : fs::directory_iterator(samples)) {
    fs::copy_file(sample.path(), fs::path(folder / "films") / sample.path().filename());
  }
  const Outcome outcome = run({"make", "--eager", "--sizes", "medium", folder / "films"});
  EXPECT_EQ(outcome.code, 0) << outcome;
  const std::pair<const char*, const char*> rows[] = {{"phone.mov", "JPEG 203x360"},  // stored on its side
                                                      {"phone.mp4", "JPEG 360x203"},
                                                      {"mpeg4.mp4", "JPEG 190x240"},
                                                      {"sample.3gp", "JPEG 176x144"},
                                                      {"camera.avi", "JPEG 320x240"}};
  for (const auto& [name, size] : rows)
    EXPECT_EQ(SizeOf(Entry(folder / (std::string("films/") + name), "M")), size) << name;
}

TEST_F(Videos, OfWhichTheToolHangsFailAndLeaveNothing) {
  fs::create_directory(folder / "films");
  MakeFilm(film, scene, 2);
  const pid_t child = run.Begin({"make", "--eager", folder / "films"}, WithProbe("hang"));
  while (Runs() == 0) usleep(1000);
  kill(child, SIGINT);
  while (run.ErrorsSoFar().find("finishing") == std::string::npos) usleep(1000);
  kill(child, SIGINT);
  const Outcome outcome = run.Await(child);
  EXPECT_EQ(outcome.code, 130);
  EXPECT_EQ(Names(EntryOf(film, "")), Strings{});
  EXPECT_EQ(Leftovers(), Strings{});
}

}  // namespace
}  // namespace tavithumb::test
