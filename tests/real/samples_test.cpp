// SPDX-License-Identifier: GPL-3.0-or-later
// Real camera files, requested in every size.
#include <tavithumb/error.h>

#include <exiv2/exiv2.hpp>
#include <set>

#include "real_support.h"

namespace tavithumb::test {
namespace {

struct Request {
  const char* size;
  int options;
  int turns;
};

const std::vector<Request> kRequests = {
    {"small", kBrovix, 0},           {"medium", kBrovix, 0}, {"big", kBrovix, 0},
    {"large", kBrovix, 0},           {"xlarge", kBrovix, 0}, {"original", kBrovix, 0},
    {"small", Thumb::OPT_AVATAR, 0}, {"medium", kBrovix, 1}, {"small", kBrovix | Thumb::OPT_ENABLE_GIF, 0}};

// An outcome per request: "=" the source itself, "-" no answer, "~" no answer while djpeg's partial picture stays
// next to the source, "!601" that error, "*" any, or the entry (without the common start of its name), type and size of
// what was made. "missing" is a name without a file: an avatar made from a preview is stored under another
// name.
std::vector<std::string> All(const char* outcome) {
  return std::vector<std::string>(kRequests.size(), outcome);
}

struct SampleRow {
  std::string file;
  std::vector<std::string> outcomes;
};

// A rotated avatar is 1x1 if the picture that it is cropped from is smaller than the source: the crop lies outside of
// it.
const std::vector<SampleRow> kRows = {
    {"broken/badwidth.bmp", {"-", "-", "-", "-", "-", "=", "-", "-", "-"}},
    {"broken/empty.jpg", All("!601")},
    {"broken/invalid_multiframe.gif",
     {"S.jpg JPEG 10x9", "M.jpg JPEG 10x9", "B.jpg JPEG 10x9", "XL.jpg JPEG 10x9", "XL.jpg JPEG 10x9", "=",
      "AVATAR_10x9.jpg JPEG 1x1", "M_r1.jpg JPEG 9x10", "="}},
    {"broken/issue_1097_poc.crw", All("!601")},
    {"broken/issue_1791_new.raf", All("-")},
    {"broken/issue_839_poc.rw2", All("!601")},
    {"broken/issue_843_poc.crw", All("!601")},
    {"broken/issue_857_poc.raf", All("!601")},
    {"broken/iteminfo.heif", All("-")},
    {"broken/shortfile.bmp", {"-", "=", "=", "=", "=", "=", "-", "-", "-"}},
    {"broken/text.heic", All("!601")},
    {"broken/text.jpg", All("!601")},
    {"broken/truncated.gif", {"-", "-", "-", "-", "-", "=", "-", "-", "-"}},
    {"broken/truncated.jpg", All("=")},
    {"gif/cogs.gif",
     {"S.jpg JPEG 85x77", "M.jpg JPEG 85x77", "B.jpg JPEG 85x77", "XL.jpg JPEG 85x77", "XL.jpg JPEG 85x77", "=",
      "AVATAR_85x77.jpg JPEG 1x1", "M_r1.jpg JPEG 77x85", "="}},
    {"gif/dispose-background.gif",
     {"S.jpg JPEG 120x105", "M.jpg JPEG 192x168", "B.jpg JPEG 192x168", "XL.jpg JPEG 192x168", "XL.jpg JPEG 192x168",
      "=", "AVATAR_120x120.jpg JPEG 120x120", "M_r1.jpg JPEG 168x192", "S.gif GIF 120x105"}},
    {"gif/dispose-previous.gif",
     {"S.jpg JPEG 100x100", "M.jpg JPEG 100x100", "B.jpg JPEG 100x100", "XL.jpg JPEG 100x100", "XL.jpg JPEG 100x100",
      "=", "AVATAR_100x100.jpg JPEG 1x1", "M_r1.jpg JPEG 100x100", "="}},
    {"gif/issue-201.gif",
     {"S.jpg JPEG 120x90", "M.jpg JPEG 360x270", "B.jpg JPEG 500x375", "XL.jpg JPEG 500x375", "XL.jpg JPEG 500x375",
      "=", "AVATAR_120x120.jpg JPEG 120x120", "M_r1.jpg JPEG 270x360", "S.gif GIF 120x90"}},
    {"heic/iphone-13.HEIC",
     {"S.jpg JPEG 90x120", "M.jpg JPEG 270x360", "B.jpg JPEG 480x640", "XL.jpg JPEG 960x1280", "XL.jpg JPEG 960x1280",
      "-", "AVATAR_120x120.jpg JPEG 120x120", "M_r1.jpg JPEG 360x270", "S.jpg JPEG 90x120"}},
    {"heic/iphone-7.HEIC",
     {"S.jpg JPEG 93x120", "M.jpg JPEG 279x360", "B.jpg JPEG 496x640", "XL.jpg JPEG 991x1280", "XL.jpg JPEG 991x1280",
      "-", "AVATAR_120x120.jpg JPEG 120x120", "M_r1.jpg JPEG 360x279", "S.jpg JPEG 93x120"}},
    {"heic/no-exif.heic", All("-")},
    {"heic/nokia-8.heif",
     {"S.jpg JPEG 120x90", "M.jpg JPEG 360x270", "B.jpg JPEG 640x480", "XL.jpg JPEG 1280x960", "XL.jpg JPEG 1280x960",
      "-", "AVATAR_120x120.jpg JPEG 120x120", "M_r1.jpg JPEG 270x360", "S.jpg JPEG 120x90"}},
    {"orientation/landscape_1.jpg",
     {"S.jpg BMP3 150x113", "=", "=", "=", "=", "=", "AVATAR_120x120.jpg BMP3 150x113", "=", "S.jpg BMP3 150x113"}},
    {"orientation/landscape_2.jpg",
     {"S.jpg JPEG 120x90", "=", "=", "=", "=", "=", "AVATAR_120x120.jpg JPEG 1x1", "=", "S.jpg JPEG 120x90"}},
    {"orientation/landscape_3.jpg",
     {"S_r2.jpg JPEG 120x90", "=", "=", "=", "=", "=", "AVATAR_120x120_r2.jpg JPEG 1x1", "=", "S_r2.jpg JPEG 120x90"}},
    {"orientation/landscape_4.jpg",
     {"S_r2.jpg JPEG 120x90", "=", "=", "=", "=", "=", "AVATAR_120x120_r2.jpg JPEG 1x1", "=", "S_r2.jpg JPEG 120x90"}},
    {"orientation/landscape_5.jpg",
     {"S_r1.jpg JPEG 120x90", "=", "=", "=", "=", "=", "AVATAR_120x120_r1.jpg JPEG 1x1", "=", "S_r1.jpg JPEG 120x90"}},
    {"orientation/landscape_6.jpg",
     {"S_r1.jpg JPEG 120x90", "=", "=", "=", "=", "=", "AVATAR_120x120_r1.jpg JPEG 1x1", "=", "S_r1.jpg JPEG 120x90"}},
    {"orientation/landscape_7.jpg",
     {"S_r3.jpg JPEG 120x90", "=", "=", "=", "=", "=", "AVATAR_120x120_r3.jpg JPEG 1x1", "=", "S_r3.jpg JPEG 120x90"}},
    {"orientation/landscape_8.jpg",
     {"S_r3.jpg JPEG 120x90", "=", "=", "=", "=", "=", "AVATAR_120x120_r3.jpg JPEG 1x1", "=", "S_r3.jpg JPEG 120x90"}},
    {"photos/canon-1000d-rotated.jpg",
     {"S_r1.jpg JPEG 90x120", "M_r1.jpg JPEG 240x360", "B_r1.jpg JPEG 427x640", "=", "=", "=", "S_r1.jpg JPEG 1x1",
      "M_r2.jpg JPEG 360x240", "S_r1.jpg JPEG 90x120"}},
    {"photos/canon-a85-rotated-ccw.jpg",
     {"S_r3.jpg JPEG 120x90", "M_r3.jpg JPEG 360x270", "=", "=", "=", "=", "S_r3.jpg JPEG 1x1", "M.jpg BMP3 426x568",
      "S_r3.jpg JPEG 120x90"}},
    {"photos/fuji-sp2500-tiny.jpg",
     {"S_r1.jpg JPEG 61x81", "M_r1.jpg JPEG 121x81", "B_r1.jpg JPEG 121x81", "XL_r1.jpg JPEG 121x81",
      "XL_r1.jpg JPEG 121x81", "=", "S_r1.jpg JPEG 1x1", "M_r2.jpg JPEG 81x121", "S_r1.jpg JPEG 61x81"}},
    {"photos/iphone-5-upside-down.jpg",
     {"S_r2.jpg JPEG 120x90", "M_r2.jpg JPEG 360x270", "B_r2.jpg JPEG 640x480", "=", "=", "=", "S_r2.jpg JPEG 1x1",
      "M_r3.jpg JPEG 270x360", "S_r2.jpg JPEG 120x90"}},
    {"photos/iphone-6-plus.jpg",
     {"S.jpg BMP3 306x408", "M.jpg BMP3 306x408", "B.jpg BMP3 612x816", "=", "=", "=",
      "AVATAR_120x120.jpg BMP3 306x408", "M_r1.jpg JPEG 360x270", "S.jpg BMP3 306x408"}},
    {"photos/nikon-d3100.jpg",
     {"S.jpg JPEG 160x120", "M.jpg JPEG 570x375", "B.jpg BMP3 1152x768", "=", "=", "=", "S.jpg missing",
      "M_r1.jpg JPEG 237x360", "S.jpg JPEG 160x120"}},
    {"photos/panasonic-lz2-rotated.jpg",
     {"S_r1.jpg JPEG 90x120", "M_r1.jpg JPEG 270x360", "=", "=", "=", "=", "S_r1.jpg JPEG 1x1", "M_r2.jpg JPEG 360x270",
      "S_r1.jpg JPEG 90x120"}},
    {"photos/samsung-j327-rotated.jpg",
     {"S_r1.jpg JPEG 90x120", "M_r1.jpg JPEG 270x360", "B_r1.jpg JPEG 480x640", "=", "=", "=",
      "AVATAR_120x120_r1.jpg JPEG 1x1", "M_r2.jpg JPEG 360x270", "S_r1.jpg JPEG 90x120"}},
    {"photos/samsung-s7-edge.jpg",
     {"S.jpg BMP3 504x378", "M.jpg JPEG 512x384", "B.jpg BMP3 1008x756", "=", "=", "=",
      "AVATAR_120x120.jpg BMP3 504x378", "M_r1.jpg JPEG 270x360", "S.jpg BMP3 504x378"}},
    {"raw/CanonRaw.cr2", {"-", "-", "-", "-", "-", "-", "-", "~", "-"}},
    {"raw/CanonRaw.crw", {"-", "-", "-", "-", "-", "-", "-", "~", "-"}},
// Later releases of Exiv2 report no size for these, so that their preview's is used; and the convert in those systems
// may support camera raw itself.
#if EXIV2_TEST_VERSION(0, 28, 0)
    {"raw/FujiFilm.raf",
     {"S.jpg JPEG 120x90", "M.jpg BMP3 160x120", "B.jpg BMP3 160x120", "XL.jpg BMP3 160x120", "XL.jpg BMP3 160x120",
      "-", "S.jpg JPEG 1x1", "M_r1.jpg JPEG 120x160", "S.jpg JPEG 120x90"}},
    {"raw/Nikon.nef", All("*")},
    {"raw/fuji-1920-preview.raf",
     {"S.jpg JPEG 120x90", "M.jpg BMP3 480x360", "B.jpg BMP3 960x720", "XL.jpg JPEG 1280x960", "XL.jpg JPEG 1280x960",
      "-", "S.jpg JPEG 1x1", "M_r1.jpg JPEG 270x360", "S.jpg JPEG 120x90"}},
#else
    {"raw/FujiFilm.raf",
     {"S.jpg JPEG 120x90", "M.jpg BMP3 80x60", "B.jpg BMP3 80x60", "XL.jpg BMP3 160x120", "XL.jpg BMP3 160x120", "-",
      "S.jpg JPEG 1x1", "M_r1.jpg JPEG 270x360", "S.jpg JPEG 120x90"}},
    {"raw/Nikon.nef", {"-", "-", "-", "-", "-", "-", "-", "~", "-"}},
    {"raw/fuji-1920-preview.raf",
     {"S.jpg JPEG 120x90", "M.jpg BMP3 240x180", "B.jpg BMP3 480x360", "XL.jpg JPEG 1280x960", "XL.jpg JPEG 1280x960",
      "-", "S.jpg JPEG 1x1", "M_r1.jpg JPEG 270x360", "S.jpg JPEG 120x90"}},
#endif
    {"raw/KyoceraRaw.raw", All("-")},
    {"raw/SigmaDP2.x3f",
     {"S.jpg JPEG 8x8", "M.jpg JPEG 8x8", "B.jpg JPEG 8x8", "XL.jpg JPEG 8x8", "XL.jpg JPEG 8x8", "-",
      "AVATAR_120x120.jpg JPEG 8x8", "M_r1.jpg JPEG 8x8", "S.jpg JPEG 8x8"}},
    {"raw/nikon-d70s.nef",
     {"S.jpg JPEG 106x160", "M.jpg JPEG 425x640", "=", "=", "=", "=", "S.jpg missing", "M_r1.jpg JPEG 360x239",
      "S.jpg JPEG 106x160"}},
    {"still/1.webp",
     {"S.jpg JPEG 120x80", "M.jpg JPEG 360x241", "B.jpg JPEG 550x368", "XL.jpg JPEG 550x368", "XL.jpg JPEG 550x368",
      "-", "AVATAR_120x120.jpg JPEG 120x120", "M_r1.jpg JPEG 241x360", "S.jpg JPEG 120x80"}},
    {"still/indexed.png",
     {"S.png PNG 79x120", "M.png PNG 236x360", "=", "=", "=", "=", "AVATAR_120x120.png PNG 120x120",
      "M_r1.png PNG 360x236", "S.png PNG 79x120"}},
    {"still/rgb24.bmp",
     {"S.jpg JPEG 120x60", "=", "=", "=", "=", "=", "AVATAR_120x64.jpg JPEG 1x1", "M_r1.jpg JPEG 64x127",
      "S.jpg JPEG 120x60"}},
    {"still/rgba.png",
     {"S.png PNG 120x120", "=", "=", "=", "=", "=", "AVATAR_120x120.png PNG 120x120", "M_r1.png PNG 128x128",
      "S.png PNG 120x120"}},
    {"still/sample.png",
     {"S.png PNG 79x120", "M.png PNG 236x360", "=", "=", "=", "=", "AVATAR_120x120.png PNG 120x120",
      "M_r1.png PNG 360x236", "S.png PNG 79x120"}},
    {"still/sample.tif",
     {"S.jpg JPEG 79x120", "M.jpg JPEG 236x360", "B.jpg JPEG 290x442", "XL.jpg JPEG 290x442", "XL.jpg JPEG 290x442",
      "-", "AVATAR_120x120.jpg JPEG 120x120", "M_r1.jpg JPEG 360x236", "S.jpg JPEG 79x120"}},
    {"still/small.bmp",
     {"S.jpg JPEG 16x12", "M.jpg JPEG 16x12", "B.jpg JPEG 16x12", "XL.jpg JPEG 16x12", "XL.jpg JPEG 16x12", "=",
      "AVATAR_16x120.jpg JPEG 1x1", "M_r1.jpg JPEG 12x16", "S.jpg JPEG 16x12"}},
};

class Samples : public RealTest {
 protected:
  void SetUp() override {
    RealTest::SetUp();
    if (samples_.empty()) GTEST_SKIP() << "needs the folder of real camera files (TAVITHUMB_SAMPLES)";
  }

  // A copy whose folder the test may write to.
  std::string Copy(const std::string& file) const {
    const std::string source = Source(std::filesystem::path(file).filename());
    std::filesystem::copy_file(samples_ + "/" + file, source, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(source, std::filesystem::perms::owner_all);
    return Dated(source);
  }

  // The outcome of a request, in the notation of the table.
  static std::string Outcome(const std::string& source, const Request& request) {
    Answer answer;
    try {
      answer = Ask(source, request.size, request.options, request.turns);
    } catch (const Error& error) {
      return "!" + std::to_string(error.Code());
    }
    if (answer.path.empty()) return HasPartialPicture(source) ? "~" : "-";
    if (answer.path == source) {
      EXPECT_EQ(answer.type, "Original");
      return "=";
    }
    EXPECT_EQ(answer.type, "Brovix");
    const std::string entry = std::filesystem::path(answer.path).filename();
    EXPECT_EQ(answer.path, EAEntry(source, entry));
    return ShortName(entry) + " " + Described(answer.path);
  }

  static bool HasPartialPicture(const std::string& source) {
    const std::vector<std::string> entries = EAEntries(source);
    return entries.size() == 1 && entries[0].rfind("TAVIFILETMP_THUMB_r1.jpg_", 0) == 0;
  }

  static std::string ShortName(const std::string& entry) {
    if (entry.rfind("TAVIFILE_THUMB_", 0) == 0) return entry.substr(15);
    return entry.rfind("TAVI", 0) == 0 ? entry.substr(4) : entry;
  }

  static std::string Described(const std::string& path) {
    if (!Exists(path)) return "missing";
    const PictureFacts facts = Identify(path);
    return facts.format + " " + std::to_string(facts.width) + "x" + std::to_string(facts.height);
  }

  void ExpectRowsOf(const std::string& folder) const {
    for (const SampleRow& row : kRows) {
      if (row.file.rfind(folder + "/", 0) == 0) ExpectRow(row);
    }
  }

  // After each request, only the thumbnail is next to the source.
  void ExpectRow(const SampleRow& row) const {
    const std::string source = Copy(row.file);
    const std::string content = ReadFile(source);
    for (std::size_t i = 0; i < kRequests.size(); ++i) {
      SCOPED_TRACE(testing::Message() << row.file << ", request " << i << " (" << kRequests[i].size << ")");
      std::filesystem::remove_all(EAEntry(source, ""));
      const std::string outcome = Outcome(source, kRequests[i]);
      EXPECT_EQ(OwnTemporaryFiles(), std::vector<std::string>{});
      if (row.outcomes[i] == "*") continue;
      EXPECT_EQ(outcome, row.outcomes[i]);
      const bool nothing = outcome == "-" || outcome == "=" || outcome.front() == '!';
      EXPECT_EQ(EAEntries(source).size(), nothing ? 0u : 1u) << testing::PrintToString(EAEntries(source));
    }
    EXPECT_TRUE(ReadFile(source) == content) << row.file << " was changed";
  }

  const std::string samples_ = SamplesFolder();
};

// Other files in the folder are printed.
TEST_F(Samples, HaveEveryFileOfTheTable) {
  std::set<std::string> more;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(samples_)) {
    if (!entry.is_regular_file() || entry.path().filename() == "README.md") continue;
    more.insert(std::filesystem::relative(entry.path(), samples_));
  }
  for (const SampleRow& row : kRows) EXPECT_EQ(more.erase(row.file), 1U) << row.file;
  for (const std::string& file : more) std::cout << "Not in the table: " << file << "\n";
}

TEST_F(Samples, PhotosAreAnsweredInEverySize) {
  ExpectRowsOf("photos");
}
TEST_F(Samples, OrientedPicturesAreAnsweredInEverySize) {
  ExpectRowsOf("orientation");
}
TEST_F(Samples, HeicPhotosAreAnsweredInEverySize) {
  ExpectRowsOf("heic");
}
TEST_F(Samples, AnimationsAreAnsweredInEverySize) {
  ExpectRowsOf("gif");
}
TEST_F(Samples, StillPicturesAreAnsweredInEverySize) {
  ExpectRowsOf("still");
}
TEST_F(Samples, RawFilesAreAnsweredInEverySize) {
  ExpectRowsOf("raw");
}
TEST_F(Samples, BrokenFilesAreAnsweredOrRejected) {
  ExpectRowsOf("broken");
}

// Each shows its orientation as a large number, so they differ more than the same picture would, but less than if
// rotated (0.15 and more).
TEST_F(Samples, OfTheEightOrientationsHaveThumbnailsWithTheSameOrientation) {
  const std::string upright = samples_ + "/orientation/landscape_1.jpg";
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const std::string source = Copy("orientation/landscape_" + std::to_string(orientation) + ".jpg");
    for (int turns = 0; turns < 4; ++turns) {
      SCOPED_TRACE(testing::Message() << "orientation " << orientation << ", turns " << turns);
      const std::string expected = directory_ / ("expected" + std::to_string(turns) + ".png");
      if (!Exists(expected)) RunTool({"/usr/bin/convert", upright, "-rotate", std::to_string(90 * turns), expected});
      EXPECT_LT(Difference(Ask(source, "small", kBrovix, turns).path, expected), 0.08);
    }
  }
}

// At a size at which no preview with another crop is used.
TEST_F(Samples, ShowWhatTheirSourcesShow) {
  const std::string expected = directory_ / "expected.png";
  for (const char* file :
       {"photos/nikon-d3100.jpg", "photos/samsung-s7-edge.jpg", "photos/iphone-6-plus.jpg",
        "photos/canon-1000d-rotated.jpg", "photos/samsung-j327-rotated.jpg", "photos/panasonic-lz2-rotated.jpg",
        "photos/iphone-5-upside-down.jpg", "photos/canon-a85-rotated-ccw.jpg", "photos/fuji-sp2500-tiny.jpg",
        "heic/iphone-7.HEIC", "heic/iphone-13.HEIC", "heic/nokia-8.heif", "gif/cogs.gif", "still/sample.tif",
        "still/sample.png", "still/indexed.png", "still/rgba.png", "still/1.webp"}) {
    SCOPED_TRACE(file);
    const std::string source = Copy(file);
    const bool heic = std::string(file).rfind("heic/", 0) == 0;  // their rotation is applied when they are read
    RunTool({"/usr/bin/convert", source + "[0]", heic ? "+repage" : "-auto-orient", "-resize", "64x64!", expected});
    EXPECT_LT(Difference(Ask(source, "medium").path, expected), kSameScene);
  }
}

struct Facts {
  const char* file;
  const char* mimeType;
  std::uint32_t width;
  std::uint32_t height;
  int orientation;
};

// As stored. HEIC photos are measured with their rotation applied, and have no type.
const Facts kFacts[] = {{"photos/nikon-d3100.jpg", "image/jpeg", 4608, 3072, 1},
                        {"photos/samsung-s7-edge.jpg", "image/jpeg", 4032, 3024, 1},
                        {"photos/iphone-6-plus.jpg", "image/jpeg", 2448, 3264, 1},
                        {"photos/canon-1000d-rotated.jpg", "image/jpeg", 3888, 2592, 6},
                        {"photos/samsung-j327-rotated.jpg", "image/jpeg", 2576, 1932, 6},
                        {"photos/panasonic-lz2-rotated.jpg", "image/jpeg", 2560, 1920, 6},
                        {"photos/iphone-5-upside-down.jpg", "image/jpeg", 3264, 2448, 3},
                        {"photos/canon-a85-rotated-ccw.jpg", "image/jpeg", 1704, 2272, 8},
                        {"photos/fuji-sp2500-tiny.jpg", "image/jpeg", 81, 121, 6},
                        {"orientation/landscape_1.jpg", "image/jpeg", 600, 450, 1},
                        {"orientation/landscape_2.jpg", "image/jpeg", 600, 450, 2},
                        {"orientation/landscape_3.jpg", "image/jpeg", 600, 450, 3},
                        {"orientation/landscape_4.jpg", "image/jpeg", 600, 450, 4},
                        {"orientation/landscape_5.jpg", "image/jpeg", 450, 600, 5},
                        {"orientation/landscape_6.jpg", "image/jpeg", 450, 600, 6},
                        {"orientation/landscape_7.jpg", "image/jpeg", 450, 600, 7},
                        {"orientation/landscape_8.jpg", "image/jpeg", 450, 600, 8},
                        {"heic/iphone-7.HEIC", "", 2566, 3313, 1},
                        {"heic/iphone-13.HEIC", "", 3024, 4032, 1},
                        {"heic/nokia-8.heif", "", 4608, 3456, 1},
                        {"gif/cogs.gif", "image/gif", 85, 77, 1},
                        {"gif/dispose-background.gif", "image/gif", 192, 168, 1},
                        {"gif/dispose-previous.gif", "image/gif", 100, 100, 1},
                        {"gif/issue-201.gif", "image/gif", 500, 375, 1},
                        {"still/sample.tif", "image/tiff", 290, 442, 1},
                        {"still/sample.png", "image/png", 290, 442, 1},
                        {"still/indexed.png", "image/png", 290, 442, 1},
                        {"still/rgba.png", "image/png", 128, 128, 1},
                        {"still/rgb24.bmp", "image/x-ms-bmp", 127, 64, 1},
                        {"still/small.bmp", "image/x-ms-bmp", 16, 4294967284, 1},  // top-down: minus 12
                        {"still/1.webp", "image/webp", 550, 368, 1},
                        {"raw/nikon-d70s.nef", "image/jpeg", 2000, 3008, 1},
                        {"raw/Nikon.nef", "image/x-nikon-nef", 3040, 2014, 1},
                        {"raw/CanonRaw.cr2", "image/x-canon-cr2", 3456, 2304, 1},
#if !EXIV2_TEST_VERSION(0, 28, 0)
                        {"raw/fuji-1920-preview.raf", "image/x-fuji-raf", 3296, 2472, 1},
#endif
                        {"raw/CanonRaw.crw", "image/x-canon-crw", 3072, 2048, 1}};

TEST_F(Samples, HaveTheFactsThatTheirCamerasWrote) {
  for (const Facts& facts : kFacts) {
    SCOPED_TRACE(facts.file);
    ThumbInfo info(samples_ + "/" + facts.file, "medium", {360, 360});
    info.ExtractImgInfo(false);
    EXPECT_TRUE(info.IsGood());
    EXPECT_EQ(info.IsHeic(), std::string(facts.mimeType).empty());
    EXPECT_EQ(info.GetMimeType(), facts.mimeType);
    EXPECT_EQ(info.GetWidth(), facts.width);
    EXPECT_EQ(info.GetHeight(), facts.height);
    const auto [rotate, flop] = ThumbInfo::rotateFlopMappingList_[static_cast<std::size_t>(facts.orientation - 1)];
    EXPECT_EQ(info.GetRotate(), rotate);
    EXPECT_EQ(info.GetFlop(), flop);
    EXPECT_EQ(info.GetFileSize(), StatOf(samples_ + "/" + facts.file).st_size);
  }
}

TEST_F(Samples, OfUnknownTypesHaveNoFacts) {
  for (const char* file : {"heic/no-exif.heic", "raw/SigmaDP2.x3f", "raw/KyoceraRaw.raw", "broken/iteminfo.heif"}) {
    SCOPED_TRACE(file);
    ThumbInfo info(samples_ + "/" + file, "medium", {360, 360});
    try {
      info.ExtractImgInfo(true);
      ADD_FAILURE() << "no error";
    } catch (const Error& error) {
      EXPECT_EQ(error.Code(), 602);
    }
    EXPECT_FALSE(info.IsGood());
    EXPECT_EQ(info.GetMimeType(), "");
    EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
  }
}

struct Preview {
  const char* file;
  std::uint32_t side;  // of the box
  std::string size;    // of the preview that is used; "" for none
};

const Preview kPreviews[] = {{"photos/nikon-d3100.jpg", 120, "JPEG 160x120"},
                             {"photos/nikon-d3100.jpg", 360, "JPEG 570x375"},
                             {"photos/nikon-d3100.jpg", 640, ""},
                             {"photos/nikon-d3100.jpg", 2147483647, "JPEG 570x375"},
                             {"photos/samsung-s7-edge.jpg", 120, ""},
                             {"photos/samsung-s7-edge.jpg", 360, "JPEG 512x384"},
                             {"photos/iphone-6-plus.jpg", 120, ""},
                             {"photos/canon-1000d-rotated.jpg", 120, "JPEG 160x120"},
                             {"photos/canon-1000d-rotated.jpg", 360, ""},
                             {"photos/canon-a85-rotated-ccw.jpg", 120, "JPEG 120x160"},
                             {"raw/fuji-1920-preview.raf", 120, "JPEG 160x120"},
                             {"raw/fuji-1920-preview.raf", 360, ""},
                             {"raw/fuji-1920-preview.raf", 1280, "JPEG 1920x1440"},
                             {"raw/nikon-d70s.nef", 120, "JPEG 106x160"},
                             {"raw/nikon-d70s.nef", 360, "JPEG 425x640"},
                             {"raw/CanonRaw.cr2", 360, ""}};

TEST_F(Samples, HaveThePreviewThatFitsTheBoxWithTheSourcesTimes) {
  for (const Preview& preview : kPreviews) {
    SCOPED_TRACE(testing::Message() << preview.file << ", box " << preview.side);
    const std::string source = Copy(preview.file);
    ThumbInfo info(source, "medium", {preview.side, preview.side});
    info.ExtractImgInfo(true);
    const std::string path = info.GetEXIFPreviewTmpPath();
    EXPECT_EQ(path.empty(), preview.size.empty());
    if (path.empty()) continue;
    EXPECT_EQ(OwnTemporaryFiles(), std::vector<std::string>{path});
    EXPECT_EQ(ModificationTime(path), kSourceTime);
    EXPECT_EQ(Described(path), preview.size);
    unlink(path.c_str());
  }
}

}  // namespace
}  // namespace tavithumb::test
