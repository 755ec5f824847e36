// SPDX-License-Identifier: GPL-3.0-or-later
// What ImageMagick may do under the policy of the programs.
#include <gtest/gtest.h>
#include <pictures.h>

#include "site.h"

namespace tavithumb::test {
namespace {

// Runs convert with the policy. Returns its exit status.
int Convert(const std::vector<std::string>& arguments, std::vector<std::string> environment = {}) {
  std::vector<std::string> argv = {"/usr/bin/convert"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  environment.push_back("MAGICK_CONFIGURE_PATH=" POLICY_FOLDER);
  Process convert(argv, environment);
  return convert.Wait();
}

TEST(Policy, AllowsEachTypeThatThumbnailsAreMadeFrom) {
  TempDir folder;
  MakePng(folder / "picture.png", 40, 30);
  MakeHeic(folder / "picture.heic", 64, 64, true);
  for (const char* kind : {"jpg", "bmp", "tif", "gif", "ppm", "pgm", "webp"}) {
    RunTool({"/usr/bin/convert", folder / "picture.png", folder / ("picture." + std::string(kind))});
  }
  for (const char* kind : {"png", "heic", "jpg", "bmp", "tif", "gif", "ppm", "pgm", "webp"}) {
    for (const char* made : {"jpg", "png", "gif"}) {
      SCOPED_TRACE(std::string(kind) + " to " + made);
      const std::string thumbnail = folder / ("thumbnail." + std::string(made));
      EXPECT_EQ(Convert({folder / ("picture." + std::string(kind)), "-resize", "20x20", thumbnail}), 0);
      EXPECT_EQ(Identify(thumbnail).width, 20);
    }
  }
}

// The content determines the decoder, whatever the name is.
TEST(Policy, RejectsAllOtherTypesWhateverTheirNames) {
  TempDir folder;
  const std::string path = folder / "evil.jpg";
  const std::pair<const char*, std::string> rows[] = {
      {"SVG",
       "<?xml version=\"1.0\"?><svg xmlns=\"http://www.w3.org/2000/svg\" width=\"9\" height=\"9\"><rect "
       "width=\"9\" height=\"9\"/></svg>"},
      {"MVG", "push graphic-context\nviewbox 0 0 9 9\nrectangle 0,0 9,9\npop graphic-context\n"},
      {"MSL", "<?xml version=\"1.0\"?><image size=\"9x9\"><read filename=\"xc:red\"/></image>"},
      {"PostScript", "%!PS-Adobe-3.0\nshowpage\n"},
      {"PDF", "%PDF-1.4\n%%EOF\n"},
      {"XPM", "/* XPM */\nstatic char *x[] = {\"1 1 1 1\",\"a c red\",\"a\"};\n"},
      {"MIFF",
       "id=ImageMagick  version=1.0\nclass=DirectClass\ncolumns=1  rows=1  depth=8\n:\x1a"
       "abc"},
  };
  for (const auto& [kind, content] : rows) {
    SCOPED_TRACE(kind);
    WriteFile(path, content);
    EXPECT_NE(Convert({path, folder / "out.png"}), 0);
    EXPECT_FALSE(Exists(folder / "out.png"));
  }
  for (const char* source : {"label:text", "xc:red", "@/etc/passwd", "text:/etc/passwd", "https://127.0.0.1/x.png"}) {
    SCOPED_TRACE(source);
    EXPECT_NE(Convert({source, folder / "out.png"}), 0);
    EXPECT_FALSE(Exists(folder / "out.png"));
  }
}

TEST(Policy, KeepsFilesNamedLikeAFrameFromInjectingArguments) {
  TempDir folder;
  const std::string photo = folder / "photo.png", frame = photo + "[0]";
  MakePng(photo, 40, 30);
  EXPECT_EQ(Convert({frame, "-resize", "20x20", folder / "thumbnail.png"}), 0);
  WriteFile(frame, photo + " -write " + (folder / "elsewhere.png"));
  Convert({frame, "-resize", "20x20", folder / "thumbnail.png"});
  EXPECT_EQ(Names(folder.Path()), (std::vector<std::string>{"photo.png", "photo.png[0]", "thumbnail.png"}));
}

TEST(Policy, IsAppliedToTheToolsOfTheProgram) {
  const Site site(Front::kNone);
  WriteFile(site / "evil.tif",
            "<?xml version=\"1.0\"?><svg xmlns=\"http://www.w3.org/2000/svg\" width=\"900\" "
            "height=\"900\"><rect width=\"9\" height=\"9\"/></svg>");
  const std::string response =
      site.Scgi({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", "/thumb/evil.tif?size=small"}, {"SCRIPT_NAME", ""}});
  EXPECT_EQ(response.rfind("Status: 422 Unprocessable Content\r\n", 0), 0U) << response;
  EXPECT_EQ(Names(site / ".tavi_ea/evil.tif"), std::vector<std::string>{});
}

std::string LittleEndian(unsigned number, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(number >> (8 * i) & 255);
  return text;
}

// A white bitmap with 24 bits per pixel and 4 pixels per row.
std::string TallBmp(unsigned height) {
  return "BM" + LittleEndian(54 + 12 * height, 4) + LittleEndian(0, 4) + LittleEndian(54, 4) + LittleEndian(40, 4) +
         LittleEndian(4, 4) + LittleEndian(height, 4) + LittleEndian(1, 2) + LittleEndian(24, 2) +
         std::string(24, '\0') + std::string(12 * height, '\xff');
}

// An animation of single pixels on a canvas of 4000 x 4000: 23 bytes per frame, and 64 MB when drawn.
std::string GifBomb(int frames) {
  const std::string side = LittleEndian(4000, 2), none(4, '\0');
  std::string gif = "GIF89a" + side + side + std::string("\x80\0\0", 3) + std::string("\0\0\0\xff\xff\xff", 6);
  const std::string frame =
      "," + none + LittleEndian(1, 2) + LittleEndian(1, 2) + std::string("\0\x02\x02\x44\x01\0", 6);
  for (int i = 0; i < frames; ++i) gif += frame;
  return gif + ";";
}

TEST(Policy, RejectsPicturesThatAreTooLarge) {
  TempDir folder;
  const std::pair<unsigned, bool> rows[] = {{16000, true}, {16001, false}};
  for (const auto& [height, isAllowed] : rows) {
    SCOPED_TRACE(height);
    WriteFile(folder / "high.bmp", TallBmp(height));
    EXPECT_EQ(Convert({folder / "high.bmp", folder / "out.png"}) == 0, isAllowed);
  }
}

TEST(Policy, RejectsAnimationsWithTooManyFrames) {
  TempDir folder;
  const std::pair<int, bool> rows[] = {{4095, true}, {4096, false}};
  for (const auto& [frames, isAllowed] : rows) {
    SCOPED_TRACE(frames);
    WriteFile(folder / "long.gif", GifBomb(frames));
    EXPECT_EQ(Convert({folder / "long.gif", "-delete", "1--1", folder / "out.png"}) == 0, isAllowed);
  }
}

TEST(Policy, StopsConversionsThatTakeTooLong) {
  TempDir folder;
  const std::string limit = "MAGICK_TIME_LIMIT=1";
  const std::string limits =
      RunTool({"/usr/bin/env", "MAGICK_CONFIGURE_PATH=" POLICY_FOLDER, limit, "/usr/bin/convert", "-list", "resource"});
  if (limits.find("Time: 1\n") == limits.npos) GTEST_SKIP() << "this release of ImageMagick takes no limit of time";
  WriteFile(folder / "bomb.gif", GifBomb(3000));
  EXPECT_NE(Convert({folder / "bomb.gif", "-coalesce", "-resize", "20x20", folder / "out.gif"}, {limit}), 0);
  EXPECT_FALSE(Exists(folder / "out.gif"));
}

// The animation is abandoned, and its first frame shown.
TEST(Limits, StopADecompressionBomb) {
  SiteOptions options;
  options.program = {"--tool-cpu", "2", "--deadline", "600"};
  const Site site(Front::kNone, options);
  WriteFile(site / "bomb.gif", GifBomb(3000));
  const std::string response = site.Scgi(
      {{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", "/thumb/bomb.gif?size=small&animate=1"}, {"SCRIPT_NAME", ""}});
  EXPECT_NE(response.find("Content-Type: image/gif\r\n"), std::string::npos) << response;
  EXPECT_EQ(Names(site / ".tavi_ea/bomb.gif"), std::vector<std::string>{"TAVIFILE_THUMB_S.gif"});
  EXPECT_EQ(Identify(site / ".tavi_ea/bomb.gif/TAVIFILE_THUMB_S.gif").frames, 1);
}

}  // namespace
}  // namespace tavithumb::test
