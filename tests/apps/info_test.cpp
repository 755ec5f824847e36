// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb info`: the facts, as a table and as JSON.
#include <pictures.h>
#include <sys/stat.h>

#include <cstdint>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

using nlohmann::json;

class Info : public testing::Test {
 protected:
  json Ask(const std::string& source) const {
    const Outcome outcome = run({"info", "--json", source});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    const std::vector<json> objects = ObjectsOf(outcome.out);
    return objects.size() == 1 ? objects.front() : json();
  }

  static json Facts(const std::string& source, const std::string& mimeType, int width, int height) {
    return {{"source", source},       {"kind", "image"},         {"mime_type", mimeType},   {"width", width},
            {"height", height},       {"orientation", 1},        {"rotation", 0},           {"mirror", false},
            {"heic", false},          {"preview", nullptr},      {"colour_space", nullptr}, {"taken", nullptr},
            {"camera_make", nullptr}, {"camera_model", nullptr}, {"lens", nullptr},         {"exposure", nullptr},
            {"place", nullptr},       {"error", nullptr}};
  }

  const TempDir folder;
  const CommandRunner run;
};

TEST_F(Info, PrintsTypeAndSize) {
  MakePng(folder / "a.png", 60, 40);
  EXPECT_EQ(Ask(folder / "a.png"), Facts(folder / "a.png", "image/png", 60, 40));
  MakeBmp(folder / "a.bmp", 60, 40);
  EXPECT_EQ(Ask(folder / "a.bmp"), Facts(folder / "a.bmp", "image/x-ms-bmp", 60, 40));
  MakeTiff(folder / "a.tif", 60, 40);
  EXPECT_EQ(Ask(folder / "a.tif"), Facts(folder / "a.tif", "image/tiff", 60, 40));
  MakeGif(folder / "a.gif", 60, 40, 2);
  EXPECT_EQ(Ask(folder / "a.gif"), Facts(folder / "a.gif", "image/gif", 60, 40));
}

struct Orientation {
  int value;
  int rotation;
  bool mirror;
};

TEST_F(Info, PrintsTheMeaningOfEachOrientation) {
  const std::string jpeg = folder / "a.jpg";
  MakeJpeg(jpeg, 60, 40);
  for (const Orientation& row : {Orientation{1, 0, false},
                                 {2, 0, true},
                                 {3, 2, false},
                                 {4, 2, true},
                                 {5, 1, true},
                                 {6, 1, false},
                                 {7, 3, true},
                                 {8, 3, false}}) {
    SCOPED_TRACE(row.value);
    SetExif(jpeg, {{"Exif.Image.Orientation", std::to_string(row.value)}});
    json expected = Facts(jpeg, "image/jpeg", 60, 40);
    expected["orientation"] = row.value;
    expected["rotation"] = row.rotation;
    expected["mirror"] = row.mirror;
    EXPECT_EQ(Ask(jpeg), expected);
  }
}

TEST_F(Info, MeasuresTheEmbeddedPreviewAndLeavesNothingInTmp) {
  const std::string jpeg = folder / "a.jpg";
  MakeJpeg(jpeg, 600, 400);
  MakeJpeg(folder / "preview.jpg", 60, 40);
  SetPreview(jpeg, folder / "preview.jpg");
  json expected = Facts(jpeg, "image/jpeg", 600, 400);
  expected["preview"] = {{"mime_type", "image/jpeg"}, {"width", 60}, {"height", 40}};
  const Outcome outcome = run({"info", "--json", jpeg});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(ObjectsOf(outcome.out), std::vector<json>{expected});
  const std::string begin = "/tmp/thumb." + std::to_string(outcome.process) + ".";
  for (const std::string& path : TemporaryFiles()) EXPECT_NE(path.substr(0, begin.size()), begin);
  EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"a.jpg", "preview.jpg"}));
}

TEST_F(Info, PrintsWhatExifSaysOfTheCameraAndItsColours) {
  const std::string jpeg = folder / "a.jpg";
  MakeJpeg(jpeg, 60, 40);
  SetExif(jpeg, {{"Exif.Image.Make", "ACME CORPORATION  "},
                 {"Exif.Image.Model", "ACME \xE9"},
                 {"Exif.Photo.ColorSpace", "1"},
                 {"Exif.Photo.DateTimeOriginal", "2024:05:01 12:30:00"}});
  json expected = Facts(jpeg, "image/jpeg", 60, 40);
  expected["colour_space"] = "sRGB";
  expected["taken"] = "2024-05-01T12:30:00";
  expected["camera_make"] = "ACME CORPORATION";
  expected["camera_model"] = "ACME \uFFFD";
  EXPECT_EQ(Ask(jpeg), expected);
  const std::string table = run({"info", "a.jpg"}, In(folder.Path())).out;
  EXPECT_EQ(table.substr(table.find("sRGB")), "sRGB    2024-05-01T12:30:00  ACME \\xe9  a.jpg\n");
}

TEST_F(Info, PrintsHowAndWhereThePhotoWasTaken) {
  const std::string jpeg = folder / "a.jpg";
  struct Row {
    std::vector<std::pair<std::string, std::string>> exif;
    json lens, exposure, place;
  };
  const std::string north = "Exif.GPSInfo.GPSLatitude", east = "Exif.GPSInfo.GPSLongitude";
  const Row rows[] = {{{{"Exif.Photo.LensModel", "ACME 50mm f/1.8  "},
                        {"Exif.Photo.ExposureTime", "10/600"},
                        {"Exif.Photo.FNumber", "18/10"},
                        {"Exif.Photo.ISOSpeedRatings", "250"},
                        {"Exif.Photo.FocalLength", "500/10"},
                        {north + "Ref", "N"},
                        {north, "48/1 53/1 33/1"},
                        {east + "Ref", "W"},
                        {east, "2/1 14/1 11/1"}},
                       "ACME 50mm f/1.8",
                       "1/60 s, f/1.8, ISO 250, 50 mm",
                       "48.89250, -2.23639"},
                      {{{"Exif.Photo.ExposureTime", "5/2"},
                        {north + "Ref", "S"},
                        {north, "33/1 30/1 0/1"},
                        {east + "Ref", "E"},
                        {east, "70/1 0/1 0/1"}},
                       nullptr,
                       "2.5 s",
                       "-33.50000, 70.00000"},
                      {{{"Exif.Photo.ExposureTime", "0/0"},
                        {"Exif.Photo.FNumber", "1/0"},
                        {north + "Ref", "N"},
                        {north, "91/1 0/1 0/1"},
                        {east + "Ref", "E"},
                        {east, "2/1 0/1 0/1"}},
                       nullptr,
                       nullptr,
                       nullptr},
                      {{{north + "Ref", "N"}, {north, "0/0 0/0 0/0"}, {east + "Ref", "E"}, {east, "0/0 0/0 0/0"}},
                       nullptr,
                       nullptr,
                       nullptr},
                      {{{north, "48/1 53/1 33/1"}, {east, "2/1 14/1 11/1"}}, nullptr, nullptr, nullptr}};
  for (const Row& row : rows) {
    std::filesystem::remove(jpeg);
    MakeJpeg(jpeg, 60, 40);
    SetExif(jpeg, row.exif);
    json expected = Facts(jpeg, "image/jpeg", 60, 40);
    expected["lens"] = row.lens;
    expected["exposure"] = row.exposure;
    expected["place"] = row.place;
    EXPECT_EQ(Ask(jpeg), expected);
  }
}

// Whatever their format: only headers and metadata are read.
TEST_F(Info, PrintsTheFactsOfLargeFiles) {
  const std::pair<std::string, std::string> files[] = {
      {"a.gif", "image/gif"}, {"a.jpg", "image/jpeg"}, {"a.png", "image/png"}};
  for (const auto& [name, type] : files) {
    const std::string file = folder / name;
    RunTool({"/usr/bin/convert", "-size", "60x40", "xc:red", file});
    std::filesystem::resize_file(file, 300000000);
    EXPECT_EQ(Ask(file), Facts(file, type, 60, 40));
  }
}

TEST_F(Info, RecognisesHeicAndReadsItsExifData) {
  MakeHeic(folder / "a.heic", 80, 60, true);
  json expected = Facts(folder / "a.heic", "image/heic", 80, 60);
  expected["heic"] = true;
  expected["camera_make"] = "Test";
  EXPECT_EQ(Ask(folder / "a.heic"), expected);
}

TEST_F(Info, RecognisesAVideoByItsNameAlone) {
  WriteFile(folder / "clip.MKV", "");
  EXPECT_EQ(Ask(folder / "clip.MKV"), (json{{"source", folder / "clip.MKV"},
                                            {"kind", "video"},
                                            {"width", nullptr},
                                            {"height", nullptr},
                                            {"duration", nullptr},
                                            {"error", nullptr}}));
}

TEST_F(Info, PrintsOneAlignedTable) {
  MakePng(folder / "a.png", 60, 40);
  MakeJpeg(folder / "turned.jpg", 1000, 700);
  MakeJpeg(folder / "preview.jpg", 60, 40);
  SetPreview(folder / "turned.jpg", folder / "preview.jpg");
  SetExif(folder / "turned.jpg", {{"Exif.Image.Orientation", "7"},
                                  {"Exif.Image.Make", "Acme"},
                                  {"Exif.Image.Model", "C1"},
                                  {"Exif.Photo.ColorSpace", "2"},
                                  {"Exif.Photo.DateTimeOriginal", "2024:05:01 12:30:00"}});
  WriteFile(folder / "clip.mp4", "");
  const Outcome outcome = run({"info", "a.png", "missing.png", "turned.jpg", "clip.mp4"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: missing.png: it does not exist; check its name\n");
  EXPECT_EQ(outcome.out,
            "KIND   TYPE        SIZE      LENGTH  ORIENTATION  ROTATION  MIRROR  HEIC  PREVIEW  COLOUR    TAKEN        "
            "        "
            "CAMERA   FILE\n"
            "image  image/png   60x40     -       1            0         no      no    -        -         -            "
            "        "
            "-        a.png\n"
            "image  image/jpeg  1000x700  -       7            270       yes     no    60x40    AdobeRGB  "
            "2024-05-01T12:30:00  "
            "Acme C1  turned.jpg\n"
            "video  -           -         -       -            -         -       -     -        -         -            "
            "        "
            "-        clip.mp4\n");
}

TEST_F(Info, PrintsNoTableWithoutRows) {
  const Outcome outcome = run({"info", "missing.png"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "tavithumb: missing.png: it does not exist; check its name\n");
}

TEST_F(Info, AddsUpTheFilesOfAFolder) {
  for (const char* name : {"a.jpg", "b.JPG", "inner/c.heic", "inner/d.mp4", "inner/notes.txt", "README"}) {
    WriteFile(folder / name, std::string(5000, 'x'));
  }
  WriteFile(EntryOf(folder / "a.jpg", kMediumJpeg), "thumbnail");
  WriteFile(folder / "empty.jpg", "");
  struct stat record = {};
  ASSERT_EQ(stat((folder / "a.jpg").c_str(), &record), 0);
  const auto disk = static_cast<std::uint64_t>(record.st_blocks) * 512;
  const Outcome outcome = run({"info", "--json", folder.Path()});
  EXPECT_EQ(outcome.code, 0) << outcome;
  const auto total = [](const char* kind, const json& type, int files, std::uint64_t bytes) {
    return json{{"kind", kind}, {"type", type}, {"files", files}, {"disk", bytes}};
  };
  EXPECT_EQ(ObjectsOf(outcome.out),
            (std::vector<json>{{{"source", folder.Path()},
                                {"totals",
                                 {total("image", "heic", 1, disk), total("image", "jpg", 3, 2 * disk),
                                  total("other", nullptr, 2, 2 * disk), total("video", "mp4", 1, disk)}},
                                {"error", nullptr}}}));
  const Outcome table = run({"info", folder.Path()});
  EXPECT_EQ(table.code, 0);
  EXPECT_EQ(table.out.substr(0, 22), "KIND   TYPE  FILES  DI");
  EXPECT_NE(table.out.find("\nother  -     2      "), std::string::npos) << table;
  EXPECT_NE(table.out.find("\nall    -     7      "), std::string::npos) << table;
}

}  // namespace
}  // namespace tavithumb::test
