// SPDX-License-Identifier: GPL-3.0-or-later
// The programs' own thumbnails: what `tavithumb make` and `get` make of photos, and that the library finds it.
#include <linux/landlock.h>
#include <pictures.h>
#include <sys/syscall.h>
#include <tavithumb/libtavithumb.h>
#include <unistd.h>

#include <filesystem>

#include "batch.h"

namespace tavithumb::test {
namespace {

using nlohmann::json;
using Strings = std::vector<std::string>;

class Rendering : public Batch {
 protected:
  // A photo of more bytes than any of its thumbnails.
  static void MakePhoto(const std::string& path, const std::string& orientation = "1") {
    RunTool(
        {"/usr/bin/convert", "-size", "900x600", "-seed", "1", "plasma:red-blue", "-quality", "100", "jpg:" + path});
    SetExif(path, {{"Exif.Image.Orientation", orientation}});
  }

  json Get(const Strings& options, const std::string& source, const Start& start = {}) const {
    return AnswerOfGet(run, options, source, start);
  }

  static std::string FactsOf(const std::string& path) {
    const PictureFacts facts = Identify(path);
    return facts.format + " " + std::to_string(facts.width) + "x" + std::to_string(facts.height);
  }

  static std::string LibraryAnswer(const std::string& source, const std::string& size) {
    Thumb job(source, Thumb::OPT_BROVIX_EA | Thumb::OPT_NO_CONVERT, false);
    return job.CalcOutputFile(size);
  }

  Strings Entries(const std::string& source) const { return Names(EntryOf(source, "")); }

  const std::string photo = folder / "photo.jpg";
};

TEST_F(Rendering, MakesEverySizeWithinItsBoxForTheLibraryToFind) {
  MakePhoto(photo, "6");
  const Outcome made = run({"make", "--sizes", "small,medium,big,large,xlarge", photo});
  EXPECT_EQ(made.code, 0) << made;
  EXPECT_EQ(Entries(photo), (Strings{"TAVIFILE_THUMB_B_r1.jpg", "TAVIFILE_THUMB_M_r1.jpg", "TAVIFILE_THUMB_S_r1.jpg",
                                     "TAVIFILE_THUMB_XL_r1.jpg"}));
  const std::pair<std::string, std::string> rows[] = {
      {"small", "JPEG 80x120"}, {"medium", "JPEG 240x360"}, {"big", "JPEG 427x640"}, {"xlarge", "JPEG 600x900"}};
  for (const auto& [size, facts] : rows) {
    const std::string answer = LibraryAnswer(photo, size);
    EXPECT_EQ(FactsOf(answer), facts) << size;
    EXPECT_EQ(ModificationTime(answer), ModificationTime(photo)) << size;
  }
}

TEST_F(Rendering, RunsNoToolAndLeavesNothingBeside) {
  MakePhoto(photo);
  const Outcome made = run({"make", "--sizes", "small,medium", "--json", photo}, ProbedStart());
  EXPECT_EQ(made.code, 0) << made;
  const json object = ObjectsOf(made.out).at(0);
  EXPECT_EQ(object.at("made"), (Strings{"small", "medium"}));
  EXPECT_EQ(object.at("by_library"), nullptr);
  EXPECT_EQ(ReadFile(noted), "");
  EXPECT_EQ(Leftovers(), Strings{});
  EXPECT_EQ(Names(folder.Path()), (Strings{".tavi_ea", "photo.jpg"}));
}

TEST_F(Rendering, CountsWhatIsLeftToTheLibraryByItsReason) {
  MakePhoto(photo);
  const std::string cut = folder / "cut.jpg";
  WriteFile(cut, ReadFile(photo).substr(0, 700));
  SetTimes(cut, 1700000000, 1700000000);
  const Outcome made = run({"make", "--sizes", "small", "--json", folder.Path()});
  const json summary = ObjectsOf(made.out).back();
  EXPECT_EQ(summary.at("by_library"), json::array({{{"reason", "damaged"}, {"files", 1}}})) << made;
}

TEST_F(Rendering, OfTheLibraryAloneIsWhatTheLibraryMakes) {
  MakePhoto(photo);
  const json object = Get({"--size", "small", "--library"}, photo);
  EXPECT_EQ(object.at("answer"), EntryOf(photo, "TAVIFILE_THUMB_S.jpg"));
  EXPECT_EQ(FactsOf(object.at("answer")).substr(0, 3), "BMP");
  std::filesystem::remove_all(folder / ".tavi_ea");
  EXPECT_EQ(run({"make", "--sizes", "small", "--library", photo}).code, 0);
  EXPECT_EQ(FactsOf(EntryOf(photo, "TAVIFILE_THUMB_S.jpg")).substr(0, 3), "BMP");
}

TEST_F(Rendering, IsFoundTheNextTime) {
  MakePhoto(photo);
  EXPECT_EQ(Get({"--size", "300x300"}, photo).at("made"), true);
  const json found = Get({"--size", "300x300"}, photo);
  EXPECT_EQ(found.at("made"), false);
  EXPECT_EQ(found.at("output_type"), "Brovix");
  EXPECT_EQ(found.at("mime_type"), "image/jpeg");
  EXPECT_EQ(FactsOf(found.at("answer")), "JPEG 300x200");
  EXPECT_EQ(Entries(photo), Strings{"TAVIFILE_THUMB_300x300.jpg"});
}

TEST_F(Rendering, TurnsAsAskedOnTopOfTheOrientation) {
  MakePhoto(photo, "6");
  const json object = Get({"--size", "small", "--rotate", "-1"}, photo);
  EXPECT_EQ(object.at("answer"), EntryOf(photo, "TAVIFILE_THUMB_S.jpg"));
  EXPECT_EQ(FactsOf(object.at("answer")), "JPEG 120x80");
}

TEST_F(Rendering, OfAnAvatarFillsTheBoxAndKeepsThePlainThumbnail) {
  MakePhoto(photo, "6");
  const json plain = Get({"--size", "small"}, photo);
  const std::string before = ReadFile(plain.at("answer"));
  const json avatar = Get({"--size", "small", "--avatar"}, photo);
  EXPECT_EQ(avatar.at("answer"), EntryOf(photo, "TAVIAVATAR_120x120_r1.jpg"));
  EXPECT_EQ(FactsOf(avatar.at("answer")), "JPEG 120x120");
  EXPECT_EQ(ReadFile(plain.at("answer")), before);
}

TEST_F(Rendering, UsesTheQualityThatIsAskedFor) {
  MakePhoto(photo);
  run({"make", "--sizes", "big", "--quality", "30", photo});
  const auto low = std::filesystem::file_size(EntryOf(photo, "TAVIFILE_THUMB_B.jpg"));
  std::filesystem::remove_all(folder / ".tavi_ea");
  run({"make", "--sizes", "big", photo});
  EXPECT_LT(low + low / 2, std::filesystem::file_size(EntryOf(photo, "TAVIFILE_THUMB_B.jpg")));
}

TEST_F(Rendering, IsNotNeededWhereTheSourceIsLightAndWithinTheBox) {
  RunTool({"/usr/bin/convert", "-size", "300x200", "xc:red", photo});
  const json object = Get({}, photo);
  EXPECT_EQ(object.at("answer"), photo);
  EXPECT_EQ(object.at("output_type"), "Original");
  const Outcome made = run({"make", "--sizes", "small,medium", "--json", photo});
  EXPECT_EQ(ObjectsOf(made.out).at(0).at("made"), Strings{"small"});
  EXPECT_EQ(ObjectsOf(made.out).at(0).at("not_needed"), Strings{"medium"});
}

TEST_F(Rendering, OfAGifThatMayMoveIsAGif) {
  for (const int frames : {1, 3}) {
    const std::string gif = folder / (std::to_string(frames) + ".gif");
    MakeGif(gif, 240, 160, frames);
    const json object = Get({"--keep-animation", "--size", "small"}, gif);
    EXPECT_EQ(object.at("answer"), EntryOf(gif, "TAVIFILE_THUMB_S.gif"));
    EXPECT_EQ(object.at("mime_type"), "image/gif");
    EXPECT_EQ(FactsOf(object.at("answer")), "GIF 120x80");
  }
}

TEST_F(Rendering, ReplacesABmpWhichIsHeavyForItsPixels) {
  MakeBmp(folder / "picture.bmp", 80, 60);
  const json object = Get({}, folder / "picture.bmp");
  EXPECT_EQ(object.at("answer"), EntryOf(folder / "picture.bmp", "TAVIFILE_THUMB_M.jpg"));
  EXPECT_EQ(FactsOf(object.at("answer")), "JPEG 80x60");
}

TEST_F(Rendering, ReplacesASourceThatIsTooHeavyForItsSize) {
  RunTool({"/usr/bin/convert", "-size", "300x200", "-seed", "1", "plasma:red-blue", "-quality", "100", photo});
  WriteFile(photo, ReadFile(photo) + std::string(300000, 'x'));
  const json object = Get({}, photo);
  EXPECT_EQ(object.at("answer"), EntryOf(photo, "TAVIFILE_THUMB_M.jpg"));
  EXPECT_EQ(FactsOf(object.at("answer")), "JPEG 300x200");
}

TEST_F(Rendering, IsATemporaryFileOnAVolumeThatStoresNone) {
  MakePhoto(photo, "6");
  Start start;
  start.environment = Preloading(NO_EA_VOLUME);
  const json object = Get({"--size", "small"}, photo, start);
  const std::string answer = object.at("answer");
  EXPECT_EQ(answer.rfind("/var/tmp/tavithumb_TAVIFILETMP_THUMB_r1.jpg_", 0), 0U) << answer;
  EXPECT_EQ(object.at("output_type"), "BrovixVarTmp");
  EXPECT_EQ(FactsOf(answer), "JPEG 80x120");
  std::filesystem::remove(answer);
  EXPECT_EQ(Names(folder.Path()), Strings{"photo.jpg"});
}

// The preview shows something else than the photo, so that its use shows.
TEST_F(Rendering, TakesAnEmbeddedPreviewThatIsLargeEnough) {
  MakePhoto(photo, "6");
  RunTool({"/usr/bin/convert", "-size", "180x120", "xc:#404040", folder / "preview.jpg"});
  SetPreview(photo, folder / "preview.jpg");
  RunTool({"/usr/bin/convert", "-size", "60x90", "xc:#404040", folder / "plain.png"});
  const auto shows = [&](const std::string& thumbnail) { return Difference(thumbnail, folder / "plain.png") < 0.02; };
  const json small = Get({"--size", "small"}, photo);
  EXPECT_EQ(FactsOf(small.at("answer")), "JPEG 80x120");
  EXPECT_TRUE(shows(small.at("answer")));
  EXPECT_FALSE(shows(Get({"--size", "medium"}, photo).at("answer")));
  std::filesystem::remove_all(folder / ".tavi_ea");
  EXPECT_EQ(run({"make", "--sizes", "small", photo}).code, 0);
  EXPECT_TRUE(shows(EntryOf(photo, "TAVIFILE_THUMB_S_r1.jpg")));
  std::filesystem::remove_all(folder / ".tavi_ea");
  SetExif(photo, {{"Exif.Thumbnail.Orientation", "1"}});
  EXPECT_FALSE(shows(Get({"--size", "small"}, photo).at("answer")));
}

TEST_F(Rendering, ConvertsAdobeRgbThatExifAloneTells) {
  MakePhoto(photo);
  const std::string asSrgb = ReadFile(Get({"--size", "small"}, photo).at("answer"));
  for (const bool makes : {false, true}) {
    std::filesystem::remove_all(folder / ".tavi_ea");
    SetExif(photo, {{"Exif.Photo.ColorSpace", "65535"}, {"Exif.Iop.InteroperabilityIndex", "R03"}});
    const std::string stored = EntryOf(photo, "TAVIFILE_THUMB_S.jpg");
    if (makes) {
      EXPECT_EQ(run({"make", "--sizes", "small", photo}).code, 0);
    } else {
      EXPECT_EQ(Get({"--size", "small"}, photo).at("answer"), stored);
    }
    EXPECT_NE(ReadFile(stored), asSrgb) << makes;
    EXPECT_GT(Difference(stored, photo), 0.01) << makes;
  }
}

TEST_F(Rendering, OfGetCanAccessLittleElse) {
  const std::string strace = "/usr/bin/strace";
  if (!Exists(strace)) GTEST_SKIP() << "needs strace";
  if (syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 1) {
    GTEST_SKIP() << "needs a kernel with Landlock";
  }
  MakePhoto(photo);
  const std::string trace = folder / "trace";
  try {
    RunTool({strace, "-f", "-o", trace, "-e", "trace=landlock_restrict_self,openat", "-E",
             "ASAN_OPTIONS=detect_leaks=0", TAVITHUMB_COMMAND, "get", "--size", "small", photo});
  } catch (const std::runtime_error&) {
    GTEST_SKIP() << "needs processes that may be traced";
  }
  const std::string calls = ReadFile(trace);
  const std::size_t restricted = calls.find("landlock_restrict_self(");
  ASSERT_NE(restricted, calls.npos);
  EXPECT_EQ(calls.substr(calls.find('=', restricted), 3), "= 0");
  // The decoder opens the photo after that; root's from its folder.
  const std::string name = photo.substr(photo.rfind('/'));
  EXPECT_NE(calls.find(name + '"', restricted), calls.npos);
}

TEST_F(Rendering, WorksForUsersWhoAreNotRoot) {
  if (const std::string why = CommandRunner::WhyNotAs(65534); !why.empty()) GTEST_SKIP() << why;
  MakePhoto(photo);
  std::filesystem::permissions(folder.Path(), std::filesystem::perms::all);
  std::filesystem::permissions(photo, std::filesystem::perms::all);
  for (const bool isFirst : {true, false}) {
    const Outcome made = run({"make", "--sizes", "small", "--json", photo}, As(65534));
    EXPECT_EQ(ObjectsOf(made.out).at(0).at(isFirst ? "made" : "found"), Strings{"small"}) << made;
  }
  EXPECT_EQ(ModificationTime(EntryOf(photo, "TAVIFILE_THUMB_S.jpg")), ModificationTime(photo));
}

// The real files that the maker leaves to the library's tools: nothing in them can be decoded. Kept animations come
// beside them.
TEST_F(Rendering, OfTheSamplesIsLeftToTheLibraryOnlyForTheseFiles) {
  namespace fs = std::filesystem;
  if (SamplesFolder().empty()) GTEST_SKIP() << "needs the samples";
  std::map<std::string, std::string> expected = {
      {"badwidth.bmp", "damaged"}, {"issue_1791_new.raf", "unsupported"}, {"CanonRaw.cr2", "unsupported"},
      {"CanonRaw.crw", "damaged"}, {"KyoceraRaw.raw", "damaged"},         {"iteminfo.heif", "damaged"},
      {"Nikon.nef", "damaged"},    {"SigmaDP2.x3f", "unsupported"},
  };
  const std::map<std::string, std::string> more = {{"17000x17000.avif", "too large"},
                                                   {"cmyk-extraneous-bytes.jpg", "unknown type"}};
  for (const fs::path& samples : {fs::path(SamplesFolder()), fs::path(SamplesFolder() + "-more")}) {
    if (!fs::exists(samples)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(samples)) {
      if (!entry.is_regular_file()) continue;
      const fs::path copy = folder / samples.filename() / fs::relative(entry.path(), samples);
      fs::create_directories(copy.parent_path());
      fs::copy_file(entry.path(), copy);
      fs::permissions(copy, fs::perms::owner_all);
    }
  }
  std::map<std::string, std::string> left;
  for (const json& object : ObjectsOf(run({"make", "--sizes", "small,big", "--json", folder.Path()}).out)) {
    if (object.contains("summary") || object.at("by_library").is_null()) continue;
    left[fs::path(object.at("source").get<std::string>()).filename()] = object.at("by_library");
  }
  if (Exists(SamplesFolder() + "-more")) expected.insert(more.begin(), more.end());
  // Later versions of LibRaw and Exiv2 can read these.
  for (const char* name : {"Nikon.nef", "cmyk-extraneous-bytes.jpg"}) {
    if (left.count(name) == 0) expected.erase(name);
  }
  EXPECT_EQ(left, expected);
}

}  // namespace
}  // namespace tavithumb::test
