// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb get`: every option, every type of answer.
#include <matching.h>
#include <pictures.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

using nlohmann::json;

class Get : public testing::Test {
 protected:
  // The answer as one JSON object, from a run that must succeed without output on standard error.
  json Ask(std::vector<std::string> options, const std::string& source, const Start& start = {}) const {
    options.insert(options.begin(), {"get", "--json"});
    options.insert(options.end(), {"--", source});
    const Outcome outcome = run(options, start);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    const std::vector<json> objects = ObjectsOf(outcome.out);
    return objects.size() == 1 ? objects.front() : json();
  }

  static json Made(const std::string& source, const std::string& entry, const std::string& mimeType = "image/jpeg") {
    return {{"source", source},        {"answer", EntryOf(source, entry)},
            {"output_type", "Brovix"}, {"mime_type", mimeType},
            {"delete", false},         {"made", true},
            {"error", nullptr}};
  }

  static json Found(const std::string& source, const std::string& entry, const std::string& mimeType = "image/jpeg") {
    json object = Made(source, entry, mimeType);
    object["made"] = false;
    return object;
  }

  static json Itself(const std::string& source, const std::string& mimeType) {
    return {{"source", source}, {"answer", source}, {"output_type", "Original"}, {"mime_type", mimeType},
            {"delete", false},  {"made", false},    {"error", nullptr}};
  }

  // A JPEG with many bytes for its pixels, so that it is decoded and not served unchanged.
  static void MakeNoise(const std::string& path) {
    RunTool(
        {"/usr/bin/convert", "-size", "400x300", "-seed", "1", "plasma:red-blue", "-quality", "100", "jpg:" + path});
  }

  static void Store(const std::string& source, const std::string& entry, const std::string& content) {
    WriteFile(EntryOf(source, entry), content);
    SetTimes(EntryOf(source, entry), ModificationTime(source), ModificationTime(source));
  }

  static std::vector<std::string> Entries(const std::string& source) { return Names(EntryOf(source, "")); }

  const TempDir folder;
  const std::string png = folder / "picture.png";
  const CommandRunner run;
};

TEST_F(Get, PrintsThePathOfAMediumThumbnailThatTheSecondRunFinds) {
  MakePng(png, 800, 600);
  const std::string answer = EntryOf(png, "TAVIFILE_THUMB_M.png");

  const Outcome first = run({"get", png});
  EXPECT_EQ(first.code, 0);
  EXPECT_EQ(first.out, answer + "\n");
  EXPECT_EQ(first.err, "");
  const PictureFacts facts = Identify(answer);
  EXPECT_EQ(facts.format, "PNG");
  EXPECT_EQ(facts.width, 360);
  EXPECT_EQ(facts.height, 270);
  struct stat before = {};
  ASSERT_EQ(stat(answer.c_str(), &before), 0);

  EXPECT_EQ(Ask({}, png), Found(png, "TAVIFILE_THUMB_M.png", "image/png"));
  struct stat after = {};
  ASSERT_EQ(stat(answer.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(before.st_ctim.tv_sec, after.st_ctim.tv_sec);
  EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
  EXPECT_EQ(Entries(png), std::vector<std::string>{"TAVIFILE_THUMB_M.png"});
}

TEST_F(Get, MakesTheThumbnailAgainWhenTheSourceIsNewer) {
  MakePng(png, 800, 600);
  Store(png, "TAVIFILE_THUMB_M.png", "stale");
  SetTimes(EntryOf(png, "TAVIFILE_THUMB_M.png"), 1, ModificationTime(png) - 1);
  EXPECT_EQ(Ask({}, png), Made(png, "TAVIFILE_THUMB_M.png", "image/png"));
}

TEST_F(Get, PrintsEachKeyInJson) {
  MakePng(png, 800, 600);
  EXPECT_EQ(Ask({"--size", "small"}, png), Made(png, "TAVIFILE_THUMB_S.png", "image/png"));
}

TEST_F(Get, FitsAThumbnailIntoABox) {
  MakePng(png, 800, 600);
  EXPECT_EQ(Ask({"--size", "500x90"}, png), Made(png, "TAVIFILE_THUMB_500x90.png", "image/png"));
  EXPECT_EQ(Ask({"--size", "500x90"}, png), Found(png, "TAVIFILE_THUMB_500x90.png", "image/png"));
  const PictureFacts facts = Identify(EntryOf(png, "TAVIFILE_THUMB_500x90.png"));
  EXPECT_EQ(facts.width, 120);
  EXPECT_EQ(facts.height, 90);
}

TEST_F(Get, ServesASourceThatFitsTheBoxUnchanged) {
  MakePng(png, 80, 60);
  EXPECT_EQ(Ask({"--size", "80x60"}, png), Itself(png, "image/png"));
  EXPECT_EQ(Ask({}, png), Itself(png, "image/png"));
  const std::string bmp = folder / "picture.bmp";
  MakeBmp(bmp, 80, 60);
  EXPECT_EQ(Ask({"--library"}, bmp), Itself(bmp, "image/x-ms-bmp"));
  EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"picture.bmp", "picture.png"}));
}

TEST_F(Get, RotatesByQuarterTurnsClockwise) {
  MakePng(png, 800, 400);
  EXPECT_EQ(Ask({"--rotate", "1"}, png), Made(png, "TAVIFILE_THUMB_M_r1.png", "image/png"));
  EXPECT_EQ(Ask({"--rotate", "-1"}, png), Made(png, "TAVIFILE_THUMB_M_r3.png", "image/png"));
  EXPECT_EQ(Ask({"--rotate", "-3"}, png), Found(png, "TAVIFILE_THUMB_M_r1.png", "image/png"));
  EXPECT_EQ(Ask({"--rotate=2", "--size", "100"}, png), Made(png, "TAVIFILE_THUMB_100x100_r2.png", "image/png"));
  const PictureFacts facts = Identify(EntryOf(png, "TAVIFILE_THUMB_M_r1.png"));
  EXPECT_EQ(facts.width, 180);
  EXPECT_EQ(facts.height, 360);
}

// A JPEG whose thumbnail would be larger than itself is served unchanged, unless it has to be rotated.
TEST_F(Get, RotatesAPhotoThatIsOtherwiseServedUnchanged) {
  const std::string jpeg = folder / "light.jpg";
  MakeJpeg(jpeg, 320, 240);
  EXPECT_EQ(Ask({}, jpeg), Itself(jpeg, "image/jpeg"));
  EXPECT_EQ(Ask({"--rotate", "1"}, jpeg), Made(jpeg, "TAVIFILE_THUMB_M_r1.jpg"));
  EXPECT_EQ(Ask({"--rotate", "1"}, jpeg), Found(jpeg, "TAVIFILE_THUMB_M_r1.jpg"));
  EXPECT_EQ(Ask({"--rotate", "4"}, jpeg), Itself(jpeg, "image/jpeg")) << "a whole turn";
  const PictureFacts facts = Identify(EntryOf(jpeg, "TAVIFILE_THUMB_M_r1.jpg"));
  EXPECT_EQ(facts.width, 240);
  EXPECT_EQ(facts.height, 320);
}

TEST_F(Get, CropsAnAvatarToFillTheBox) {
  MakePng(png, 800, 600);
  EXPECT_EQ(Ask({"--avatar", "--size", "100"}, png), Made(png, "TAVIAVATAR_100x100.png", "image/png"));
  EXPECT_EQ(Ask({"--avatar", "--size", "100"}, png), Found(png, "TAVIAVATAR_100x100.png", "image/png"));
  const PictureFacts facts = Identify(EntryOf(png, "TAVIAVATAR_100x100.png"));
  EXPECT_EQ(facts.width, 100);
  EXPECT_EQ(facts.height, 100);
}

TEST_F(Get, PrintsThePathOfAnAvatarMadeFromAPreview) {
  const std::string jpeg = folder / "camera.jpg";
  const TempDir other;
  MakeJpeg(jpeg, 1600, 1200);
  MakeJpeg(other / "preview.jpg", 320, 240);
  SetPreview(jpeg, other / "preview.jpg");
  Store(jpeg, "TAVIFILE_THUMB_300x300.jpg", "not the avatar");
  EXPECT_EQ(Ask({"--library", "--avatar", "--size", "300"}, jpeg), Made(jpeg, "TAVIAVATAR_300x300.jpg"));
  EXPECT_EQ(Entries(jpeg), (std::vector<std::string>{"TAVIAVATAR_300x300.jpg", "TAVIFILE_THUMB_300x300.jpg"}));
}

TEST_F(Get, UsesAnEmbeddedPreviewEvenWhenConvertingIsForbidden) {
  const std::string jpeg = folder / "camera.jpg";
  const TempDir other;
  MakeJpeg(jpeg, 1600, 1200);
  MakeJpeg(other / "preview.jpg", 320, 240);
  SetPreview(jpeg, other / "preview.jpg");
  EXPECT_EQ(Ask({"--no-convert", "--size", "300"}, jpeg), Made(jpeg, "TAVIFILE_THUMB_300x300.jpg"));
  EXPECT_EQ(ReadFile(EntryOf(jpeg, "TAVIFILE_THUMB_300x300.jpg")), ReadFile(other / "preview.jpg"));
}

TEST_F(Get, KeepsAnAnimationOnRequest) {
  const std::string gif = folder / "moving.gif";
  MakeGif(gif, 240, 160, 3);
  EXPECT_EQ(Ask({"--keep-animation", "--size", "small"}, gif), Made(gif, "TAVIFILE_THUMB_S.gif", "image/gif"));
  EXPECT_EQ(Ask({"--size", "small"}, gif), Made(gif, "TAVIFILE_THUMB_S.jpg"));
  EXPECT_EQ(Identify(EntryOf(gif, "TAVIFILE_THUMB_S.gif")).frames, 3);
  EXPECT_EQ(Identify(EntryOf(gif, "TAVIFILE_THUMB_S.jpg")).frames, 1);
}

// They are made within the same second, when the frames of all of them are written to the same file.
TEST_F(Get, DoesNotMixUpAnimationsOfTheSameName) {
  const int count = 6;
  for (int i = 0; i < count; ++i) {
    std::filesystem::create_directory(folder / std::to_string(i));
    MakeGif(folder / std::to_string(i) + "/moving.gif", 240 + 20 * i, 160, 3 + i);
  }
  std::vector<CommandRunner> runs(count);
  std::vector<pid_t> children;
  for (int i = 0; i < count; ++i) {
    children.push_back(
        runs[i].Begin({"get", "--keep-animation", "--size", "small", folder / std::to_string(i) + "/moving.gif"}));
  }
  for (int i = 0; i < count; ++i) {
    const std::string stored = EntryOf(folder / std::to_string(i) + "/moving.gif", "TAVIFILE_THUMB_S.gif");
    EXPECT_EQ(runs[i].Await(children[i]).out, stored + "\n");
    EXPECT_EQ(Identify(stored).frames, 3 + i);
  }
}

TEST_F(Get, RunsNoToolWhenConvertingIsForbidden) {
  MakePng(png, 800, 600);
  for (const char* size : {"medium", "300x200"}) {
    SCOPED_TRACE(size);
    const Outcome outcome = run({"get", "--no-convert", "--size", size, png});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(
        outcome.err,
        "tavithumb: " + png + ": no thumbnail is stored and --no-convert forbids making one; leave out --no-convert\n");
    EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{"picture.png"});
  }
  Store(png, "TAVIFILE_THUMB_300x200.png", "stored");
  EXPECT_EQ(Ask({"--no-convert", "--size", "300x200"}, png), Found(png, "TAVIFILE_THUMB_300x200.png", "image/png"));
}

TEST_F(Get, FallsBackToSmallerSizesOnRequest) {
  MakePng(png, 800, 600);
  Store(png, "TAVIFILE_THUMB_S.png", "stored");
  EXPECT_EQ(Ask({"--no-convert", "--fallback-smaller", "--size", "xlarge"}, png),
            Found(png, "TAVIFILE_THUMB_S.png", "image/png"));
  const std::string tiff = folder / "picture.tif";
  MakeTiff(tiff, 300, 200);
  EXPECT_EQ(Ask({"--fallback-smaller", "--size", "original"}, tiff), Made(tiff, "TAVIFILE_THUMB_XL.jpg"));
}

TEST_F(Get, LooksForAlbumexThumbnailsFirstOnRequest) {
  MakePng(png, 800, 600);
  Store(png, "TAVIFILE_THUMB_M.png", "brovix");
  Store(png, "TAVIPHOTO:THUMB_M.png", "old");
  json expected = Found(png, "TAVIPHOTO:THUMB_M.png", "image/png");
  expected["output_type"] = "Albumex";
  EXPECT_EQ(Ask({"--albumex"}, png), expected);
  Store(png, "TAVIPHOTO_THUMB_M.png", "new");
  expected["answer"] = EntryOf(png, "TAVIPHOTO_THUMB_M.png");
  EXPECT_EQ(Ask({"--albumex"}, png), expected);
  EXPECT_EQ(Ask({}, png), Found(png, "TAVIFILE_THUMB_M.png", "image/png"));
}

TEST_F(Get, SkipsBrovixThumbnailsOnRequest) {
  MakePng(png, 800, 600);
  Store(png, "TAVIFILE_THUMB_M.png", "stored");
  EXPECT_EQ(Ask({"--no-brovix"}, png), Made(png, "TAVIFILE_THUMB_M.png", "image/png"));
  EXPECT_EQ(Identify(EntryOf(png, "TAVIFILE_THUMB_M.png")).width, 360);
}

TEST_F(Get, ServesAHeicPhotoUnchangedOnlyWhenAccepted) {
  const std::string heic = folder / "photo.HEIC";
  MakeHeic(heic, 800, 600, true);
  EXPECT_EQ(Ask({"--accept-heic"}, heic), Itself(heic, "image/heic"));
  EXPECT_EQ(Ask({"--accept-heic", "--size", "50x50"}, heic), Itself(heic, "image/heic"));
  EXPECT_EQ(Ask({"--accept-heic", "--size", "original"}, heic), Itself(heic, "image/heic"));
  EXPECT_EQ(Ask({}, heic), Made(heic, "TAVIFILE_THUMB_M.jpg"));
  for (const std::vector<std::string>& options :
       {std::vector<std::string>{"--rotate", "1", "--accept-heic"}, {"--json"}}) {
    std::vector<std::string> arguments = {"get", "--size", "original", heic};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(run(arguments).code, 1) << testing::PrintToString(options);
  }
}

TEST_F(Get, AnswersAVideoWithItsStoredScreenshot) {
  const std::string video = folder / "clip.MP4";
  WriteFile(video, "no real video");
  Store(video, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", "screenshot");
  json expected = Found(video, "TAVIVIDEO_VIDEO_SCREENSHOT.jpg");
  expected["output_type"] = "Cinevo";
  EXPECT_EQ(Ask({}, video), expected);
  EXPECT_EQ(Ask({"--size", "10x10"}, video), expected);
}

TEST_F(Get, LeavesAnAnswerThatTheCallerDeletes) {
  const std::string jpeg = folder / "noise.jpg";
  MakeNoise(jpeg);
  json expected = Made(jpeg, "TAVIFILE_THUMB_S.jpg");
  expected["delete"] = true;
  EXPECT_EQ(Ask({"--library", "--size", "small"}, jpeg), expected);
  EXPECT_EQ(Identify(EntryOf(jpeg, "TAVIFILE_THUMB_S.jpg")).format, "BMP3");
}

TEST_F(Get, GivesTemporaryAnswersOfOneRunDifferentNames) {
  const std::string other = folder / "other.png";
  MakePng(png, 800, 600);
  MakePng(other, 600, 800);
  Start start;
  start.environment = Preloading(NO_EA_VOLUME);
  const Outcome outcome = run({"get", "--json", png, other, png}, start);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  const std::vector<json> objects = ObjectsOf(outcome.out);
  ASSERT_EQ(objects.size(), 3u);
  const std::vector<std::string> sources = {png, other, png};
  std::set<std::string> answers;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    SCOPED_TRACE(objects[i]);
    const std::string answer = objects[i].at("answer");
    EXPECT_TRUE(Matches(answer, "/var/tmp/tavithumb_TAVIFILETMP_THUMB\\.png_[0-9]+_[0-9]+_[0-9]+"));
    EXPECT_TRUE(answers.insert(answer).second);
    EXPECT_EQ(objects[i], (json{{"source", sources[i]},
                                {"answer", answer},
                                {"output_type", "BrovixVarTmp"},
                                {"mime_type", "image/png"},
                                {"delete", false},
                                {"made", true},
                                {"error", nullptr}}));
    EXPECT_EQ(Identify(answer).width, i == 1 ? 270 : 360);
    std::filesystem::remove(answer);
  }
  EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"other.png", "picture.png"}));
}

TEST_F(Get, AnswersInOrderAndContinuesAfterAFailure) {
  MakePng(png, 80, 60);
  const std::string video = folder / "clip.mp4";
  WriteFile(video, "no real video");
  const std::string missing = folder / "missing.jpg";
  const std::string missingLine = "tavithumb: " + missing + ": it does not exist; check its name\n";
  const std::string videoLine =
      "tavithumb: " + video + ": no screenshot is stored for this video; store one first, or leave out --library\n";

  const Outcome lines = run({"get", "--library", png, missing, png, video});
  EXPECT_EQ(lines.code, 1);
  EXPECT_EQ(lines.out, png + "\n" + png + "\n");
  EXPECT_EQ(lines.err, missingLine + videoLine);

  const Outcome objects = run({"get", "--library", "--json", missing, png, video});
  EXPECT_EQ(objects.code, 1);
  EXPECT_EQ(objects.err, missingLine + videoLine);
  EXPECT_EQ(ObjectsOf(objects.out),
            (std::vector<json>{{{"source", missing}, {"error", "it does not exist"}},
                               Itself(png, "image/png"),
                               {{"source", video}, {"error", "no screenshot is stored for this video"}}}));

  const Outcome nulEnded = run({"get", "-0", png, missing, png});
  EXPECT_EQ(nulEnded.code, 1);
  EXPECT_EQ(nulEnded.out, png + '\0' + png + '\0');
  EXPECT_EQ(nulEnded.err, missingLine);
}

TEST_F(Get, SuppressesTheOutputOfTools) {
  const std::string jpeg = folder / "cut.jpg";
  MakeNoise(jpeg);
  std::filesystem::resize_file(jpeg, std::filesystem::file_size(jpeg) / 2);
  const Outcome outcome = run({"get", "--size", "small", jpeg});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, EntryOf(jpeg, "TAVIFILE_THUMB_S.jpg") + "\n");
  EXPECT_EQ(outcome.err, "");
}

}  // namespace
}  // namespace tavithumb::test
