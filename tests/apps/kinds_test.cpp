// SPDX-License-Identifier: GPL-3.0-or-later
// The types of photos of which the library has no facts, and WebP: what the command makes of them, finds and says.
#include <modern_pictures.h>
#include <pictures.h>
#include <tavithumb/libtavithumb.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "batch.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Strings = std::vector<std::string>;

constexpr std::time_t photoTime = 1700000000;

class Kinds : public Batch {
 protected:
  // A photo of 900 x 600 pixels of each type.
  Strings MakeOneOfEachType() const {
    Strings photos;
    for (const ModernType& type : ModernTypes()) {
      photos.push_back(folder / (std::string("photo.") + type.extension));
      type.make(photos.back(), 900, 600);
      SetTimes(photos.back(), photoTime, photoTime);
    }
    return photos;
  }

  json Get(const Strings& options, const std::string& source, const Start& start = {}) const {
    return AnswerOfGet(run, options, source, start);
  }

  static std::string FactsOf(const std::string& path) {
    const PictureFacts facts = Identify(path);
    return facts.format + " " + std::to_string(facts.width) + "x" + std::to_string(facts.height);
  }

  std::string Scene(int width, int height, const std::string& rotation = "0") const {
    const std::string path = notes / "scene.png";
    MakePng(path, width, height);
    RunTool({"/usr/bin/convert", path, "-rotate", rotation, path});
    return path;
  }

  // Where the library would store what it makes, with the facts that it has.
  template <typename Size>
  static std::string DestinationOfTheLibrary(const std::string& source, int options, const Size& size, int turns) {
    Thumb job(source, options, false);
    job.ReadFacts();
    job.SetRequest(size);
    job.Rotate(turns);
    return job.GetOnlineOutputDest();
  }

  void ExpectRefusal(const Strings& arguments, const std::string& source, const std::string& line) const {
    Strings all = arguments;
    all.push_back(source);
    const Outcome outcome = run(all);
    EXPECT_EQ(outcome.code, 1) << source;
    EXPECT_EQ(outcome.out, "") << source;
    EXPECT_EQ(outcome.err, "tavithumb: " + source + ": " + line + "\n");
  }

  Strings Entries(const std::string& source) const { return Names(EntryOf(source, "")); }
};

TEST_F(Kinds, GetAThumbnailThatIsFoundTheNextTime) {
  for (const std::string& photo : MakeOneOfEachType()) {
    SCOPED_TRACE(photo);
    const std::string entry = EntryOf(photo, "TAVIFILE_THUMB_S.jpg");
    for (const bool isFirst : {true, false}) {
      EXPECT_EQ(Get({"--size", "small"}, photo, ProbedStart()), (json{{"source", photo},
                                                                      {"answer", entry},
                                                                      {"output_type", "Brovix"},
                                                                      {"mime_type", "image/jpeg"},
                                                                      {"delete", false},
                                                                      {"made", isFirst},
                                                                      {"error", nullptr}}));
    }
    EXPECT_EQ(entry, DestinationOfTheLibrary(photo, Thumb::OPT_BROVIX_EA, std::string("small"), 0));
    EXPECT_EQ(FactsOf(entry), "JPEG 120x80");
    EXPECT_LT(Difference(entry, Scene(900, 600)), 0.05);
    EXPECT_EQ(ModificationTime(entry), photoTime);
    EXPECT_EQ(Entries(photo), Strings{"TAVIFILE_THUMB_S.jpg"});
  }
  EXPECT_EQ(ReadFile(noted), "");
  EXPECT_EQ(Leftovers(), Strings{});
}

TEST_F(Kinds, AreStoredUnderTheNamesThatTheLibraryGives) {
  const ThumbDimension box = {300, 200};
  for (const std::string& photo : MakeOneOfEachType()) {
    SCOPED_TRACE(photo);
    const json turned = Get({"--size", "300x200", "--rotate", "1"}, photo);
    EXPECT_EQ(turned.at("answer"), DestinationOfTheLibrary(photo, Thumb::OPT_BROVIX_EA, box, 1));
    EXPECT_EQ(FactsOf(turned.at("answer")), "JPEG 133x200");
    EXPECT_LT(Difference(turned.at("answer"), Scene(900, 600, "90")), 0.05);
    const json avatar = Get({"--size", "300x200", "--avatar"}, photo);
    EXPECT_EQ(avatar.at("answer"), DestinationOfTheLibrary(photo, Thumb::OPT_AVATAR, box, 0));
    EXPECT_EQ(FactsOf(avatar.at("answer")), "JPEG 300x200");
    for (const Strings& options : {Strings{"--size", "300x200", "--rotate", "1"}, {"--size", "300x200", "--avatar"}}) {
      EXPECT_EQ(Get(options, photo).at("made"), false);
    }
  }
}

TEST_F(Kinds, AreWalkedInFoldersWhateverTheCaseOfTheirNames) {
  Strings names;
  for (const std::string& photo : MakeOneOfEachType()) {
    std::string name = fs::path(photo).filename();
    std::transform(name.begin() + 1, name.end(), name.begin() + 1, ::toupper);
    fs::rename(photo, folder / name);
    names.push_back(name);
  }
  const auto makes = [&](const Strings& options) {
    Strings arguments = {"make", "--sizes", "small,big", "--json"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(folder.Path());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.code, 0) << outcome;
    return ObjectsOf(outcome.out).back();
  };
  EXPECT_EQ(makes({"--older"}).at("made"), 0);
  EXPECT_EQ(makes({"--dry-run"}).at("made"), 12);
  EXPECT_FALSE(Exists(folder / ".tavi_ea"));
  const json made = makes({});
  EXPECT_EQ(made.at("made"), 12);
  EXPECT_EQ(made.at("by_library"), json::array());
  for (const std::string& name : names) {
    EXPECT_EQ(Entries(folder / name), (Strings{"TAVIFILE_THUMB_B.jpg", "TAVIFILE_THUMB_S.jpg"})) << name;
    EXPECT_EQ(FactsOf(EntryOf(folder / name, "TAVIFILE_THUMB_B.jpg")), "JPEG 640x427") << name;
  }
  EXPECT_EQ(makes({}).at("found"), 12);
  EXPECT_EQ(makes({"--dry-run"}).at("made"), 0);
  for (const std::string& name : names) SetTimes(folder / name, photoTime, photoTime + 1);
  EXPECT_EQ(makes({"--older"}).at("made"), 12);
  EXPECT_EQ(makes({}).at("found"), 12);
}

TEST_F(Kinds, AreTakenFromListsOfNames) {
  const Strings photos = MakeOneOfEachType();
  Start start;
  start.input = temporary / "names";
  std::string list = folder / "notes.txt\n";
  WriteFile(folder / "notes.txt", "no photo");
  for (const std::string& photo : photos) list += photo + "\n";
  WriteFile(start.input, list);
  const Outcome outcome = run({"make", "--sizes", "small", "--json", "--files-from", "-"}, start);
  EXPECT_EQ(ObjectsOf(outcome.out).back().at("files"), photos.size()) << outcome;
  EXPECT_EQ(ObjectsOf(outcome.out).back().at("made"), photos.size()) << outcome;
}

TEST_F(Kinds, HaveFacts) {
  for (const ModernType& type : ModernTypes()) {
    const std::string photo = folder / (std::string("photo.") + type.extension);
    type.make(photo, 300, 200);
    const bool isHeic = std::string(type.mimeType) == "image/heic";
    const Outcome outcome = run({"info", "--json", photo});
    EXPECT_EQ(ObjectsOf(outcome.out).at(0),
              (json{{"source", photo},
                    {"kind", "image"},
                    {"mime_type", type.mimeType},
                    {"width", 300},
                    {"height", 200},
                    {"orientation", 1},
                    {"rotation", 0},
                    {"mirror", false},
                    {"heic", isHeic},
                    {"preview", nullptr},
                    {"colour_space", nullptr},
                    {"taken", nullptr},
                    {"camera_make", std::string(type.extension) == "hif" ? json("Test") : json(nullptr)},
                    {"camera_model", nullptr},
                    {"lens", nullptr},
                    {"exposure", nullptr},
                    {"place", nullptr},
                    {"error", nullptr}}))
        << outcome;
  }
}

// JPEG XL is decoded upright; of a CR3, the preview is stored as the sensor saw it.
TEST_F(Kinds, AreUprightWhateverTheirOrientation) {
  struct Row {
    int orientation;
    const char* operation;
    int rotation;
  };
  for (const Row& row : {Row{3, "180", 2}, Row{6, "90", 1}, Row{8, "270", 3}}) {
    const bool isTurned = row.orientation != 3;
    const std::string jxl = folder / (std::to_string(row.orientation) + ".jxl");
    const std::string cr3 = folder / (std::to_string(row.orientation) + ".cr3");
    MakeJxl(jxl, 900, 600, row.orientation);
    MakeCr3(cr3, 900, 600, row.orientation);
    for (const std::string& photo : {jxl, cr3}) {
      const json object = Get({"--size", "small"}, photo);
      EXPECT_EQ(object.at("answer"), EntryOf(photo, "TAVIFILE_THUMB_S.jpg"));
      EXPECT_EQ(FactsOf(object.at("answer")), isTurned ? "JPEG 80x120" : "JPEG 120x80") << photo;
      EXPECT_LT(Difference(object.at("answer"), Scene(900, 600, row.operation)), 0.05) << photo;
    }
    const json upright = ObjectsOf(run({"info", "--json", jxl}).out).at(0);
    EXPECT_EQ(upright.at("width"), isTurned ? 600 : 900) << jxl;
    EXPECT_EQ(upright.at("orientation"), 1) << jxl;
    const json stored = ObjectsOf(run({"info", "--json", cr3}).out).at(0);
    EXPECT_EQ(stored.at("width"), 900) << cr3;
    EXPECT_EQ(stored.at("orientation"), row.orientation) << cr3;
    EXPECT_EQ(stored.at("rotation"), row.rotation) << cr3;
  }
}

TEST_F(Kinds, HaveBadAndStaleThumbnailsMadeAgainOnce) {
  struct Row {
    const char* what;
    const char* type;
    const char* size;
    std::time_t time;
    bool isMadeAgain;
  };
  const Row rows[] = {
      {"good", "jpg:", "120x80", photoTime, false},
      {"of another photo that was replaced", "jpg:", "120x80", photoTime + 1, true},
      {"older than the photo", "jpg:", "120x80", photoTime - 1, true},
      {"a BMP", "bmp:", "120x80", photoTime, true},
      {"larger than its box", "jpg:", "121x80", photoTime, true},
  };
  for (const std::string& photo : MakeOneOfEachType()) {
    const std::string entry = EntryOf(photo, "TAVIFILE_THUMB_S.jpg");
    fs::create_directories(fs::path(entry).parent_path());
    for (const Row& row : rows) {
      for (const bool byGet : {false, true}) {
        RunTool({"/usr/bin/convert", "-size", row.size, "xc:green", row.type + entry});
        SetTimes(entry, row.time, row.time);
        for (const bool isFirst : {true, false}) {
          const Outcome outcome = byGet ? run({"get", "--size", "small", "--json", photo})
                                        : run({"make", "--sizes", "small", "--json", photo});
          const json made = ObjectsOf(outcome.out).at(0).at("made");
          const bool wasMade = byGet ? made.get<bool>() : !made.empty();
          EXPECT_EQ(wasMade, isFirst && row.isMadeAgain) << photo << ", " << row.what << ", " << outcome;
        }
      }
    }
  }
}

TEST_F(Kinds, AreOnlyLookedUpWithoutConversion) {
  for (const std::string& photo : MakeOneOfEachType()) {
    for (const char* size : {"small", "300x200"}) {
      ExpectRefusal({"get", "--no-convert", "--size", size}, photo,
                    "no thumbnail is stored and --no-convert forbids making one; leave out --no-convert");
      const json made = Get({"--size", size}, photo);
      const json found = Get({"--no-convert", "--size", size}, photo);
      EXPECT_EQ(found.at("answer"), made.at("answer"));
      EXPECT_EQ(found.at("made"), false);
    }
    const json smaller = Get({"--no-convert", "--fallback-smaller", "--size", "original"}, photo);
    const bool isShown = fs::path(photo).extension() == ".webp" || fs::path(photo).extension() == ".avif";
    EXPECT_EQ(smaller.at("answer"), isShown ? photo : EntryOf(photo, "TAVIFILE_THUMB_S.jpg"));
  }
}

TEST_F(Kinds, AreServedUnchangedOnlyWhereBrowsersShowThem) {
  for (const ModernType& type : ModernTypes()) {
    const std::string photo = folder / (std::string("light.") + type.extension);
    type.make(photo, 300, 200);
    const bool isShown = std::string(type.extension) == "webp" || std::string(type.extension) == "avif";
    const json object = Get({"--size", "medium"}, photo);
    EXPECT_EQ(object.at("answer"), isShown ? photo : EntryOf(photo, "TAVIFILE_THUMB_M.jpg"));
    EXPECT_EQ(object.at("mime_type"), isShown ? type.mimeType : "image/jpeg") << photo;
    EXPECT_EQ(object.at("output_type"), isShown ? "Original" : "Brovix") << photo;
    const json made = ObjectsOf(run({"make", "--sizes", "small,medium", "--json", photo}).out).at(0);
    EXPECT_EQ(made.at("not_needed"), isShown ? Strings{"medium"} : Strings{}) << photo;
    if (isShown) {
      EXPECT_EQ(Get({"--size", "original"}, photo).at("mime_type"), type.mimeType);
      EXPECT_EQ(FactsOf(Get({"--size", "medium", "--rotate", "1"}, photo).at("answer")), "JPEG 200x300") << photo;
    } else {
      ExpectRefusal({"get", "--size", "original"}, photo,
                    "a browser cannot show the original; ask for a smaller size, or add --fallback-smaller");
      EXPECT_EQ(Get({"--size", "original", "--fallback-smaller"}, photo).at("answer"),
                EntryOf(photo, "TAVIFILE_THUMB_XL.jpg"));
    }
  }
}

TEST_F(Kinds, AreMadeAsTemporaryFilesOnVolumesThatStoreNone) {
  Start start;
  start.environment = Preloading(NO_EA_VOLUME);
  for (const std::string& photo : MakeOneOfEachType()) {
    SCOPED_TRACE(photo);
    const json object = Get({"--size", "small", "--rotate", "1", "--avatar"}, photo, start);
    const std::string answer = object.at("answer");
    EXPECT_EQ(answer.rfind("/var/tmp/tavithumb_TAVIFILETMP_THUMB_r1.jpg_", 0), 0U) << answer;
    EXPECT_EQ(object.at("output_type"), "BrovixVarTmp");
    EXPECT_EQ(object.at("mime_type"), "image/jpeg");
    EXPECT_EQ(object.at("made"), true);
    EXPECT_EQ(FactsOf(answer), "JPEG 120x120");
    fs::remove(answer);
  }
  EXPECT_FALSE(Exists(folder / ".tavi_ea"));
}

TEST_F(Kinds, OfHeicWithoutExifAreServedToThoseWhoAcceptHeic) {
  MakeHeic(folder / "photo.heic", 900, 600, false);
  MakeHif(folder / "photo.hif", 900, 600);
  const json heic = Get({"--accept-heic"}, folder / "photo.heic");
  EXPECT_EQ(heic.at("answer"), folder / "photo.heic");
  EXPECT_EQ(heic.at("mime_type"), "image/heic");
  EXPECT_EQ(Get({"--accept-heic"}, folder / "photo.hif").at("mime_type"), "image/jpeg");
}

TEST_F(Kinds, OfAnAnimatedWebpAreStill) {
  const std::string photo = folder / "moving.webp";
  RunTool({"/usr/bin/convert", "-size", "60x40", "xc:red", "xc:blue", "webp:" + photo});
  const json object = Get({}, photo);
  EXPECT_EQ(object.at("answer"), EntryOf(photo, "TAVIFILE_THUMB_M.jpg"));
  EXPECT_EQ(FactsOf(object.at("answer")), "JPEG 60x40");
}

TEST_F(Kinds, AreKnownByTheirContentNotByTheirName) {
  for (const ModernType& type : ModernTypes()) {
    const std::string photo = folder / (std::string(type.extension) + ".jpg");
    type.make(photo, 900, 600);
    EXPECT_EQ(FactsOf(Get({"--size", "small"}, photo).at("answer")), "JPEG 120x80") << photo;
  }
}

TEST_F(Kinds, ThatAreDamagedFailWithAReason) {
  const char converted[] =
      "it could not be converted; check that it opens in another program and that the disk has space";
  const char* const photos[] = {"photo.avif", "photo.jxl", "photo.hif", "photo.cr3", "photo.heic"};
  MakeOneOfEachType();
  for (const char* name : photos) {
    fs::resize_file(folder / name, 40);
    ExpectRefusal({"get"}, folder / name, converted);
    if (std::string(name) == "photo.jxl") continue;  // its size is in the first bytes
    ExpectRefusal({"info"}, folder / name, "its size in pixels cannot be read; check that it opens in another program");
  }
  fs::resize_file(folder / "photo.webp", 40);
  const Outcome outcome = run({"get", folder / "photo.webp"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome;
  const json summary = ObjectsOf(run({"make", "--sizes", "small", "--json", folder.Path()}).out).back();
  EXPECT_EQ(summary.at("failed"), 6);
}

TEST_F(Kinds, AreLeftToTheLibraryAloneOnRequest) {
  for (const std::string& photo : MakeOneOfEachType()) {
    if (fs::path(photo).extension() == ".webp") continue;
    ExpectRefusal({"get", "--library"}, photo, "the library's tools cannot convert it; leave out --library");
  }
}

TEST_F(Kinds, HaveTheirThumbnailsListedAddedAndCleaned) {
  for (const std::string& photo : MakeOneOfEachType()) {
    SCOPED_TRACE(photo);
    const std::string entry = EntryOf(photo, "TAVIFILE_THUMB_S.jpg");
    MakeJpeg(temporary / "added.jpg", 90, 60);
    EXPECT_EQ(run({"add", "--size", "small", photo, temporary / "added.jpg"}).out, entry + "\n");
    EXPECT_EQ(Get({"--size", "small"}, photo).at("made"), false);
    EXPECT_EQ(FactsOf(entry), "JPEG 90x60");
    const json listed = ObjectsOf(run({"list", "--json", photo}).out).at(0).at("entries").at(0);
    EXPECT_EQ(listed.at("size"), "small");
    EXPECT_EQ(listed.at("state"), "up to date");
    EXPECT_EQ(run({"clean", photo}).out, "freed 0 bytes in 0 files\n");
    SetTimes(photo, photoTime, photoTime + 1);
    EXPECT_EQ(run({"clean", photo}).out.find("removed " + entry + ": it is older than its source\n"), 0U);
    EXPECT_EQ(Get({"--size", "small"}, photo).at("made"), true);
    fs::remove(photo);
    EXPECT_EQ(run({"clean", folder.Path()}).out.find("removed " + entry + ": its source is gone\n"), 0U);
    EXPECT_FALSE(Exists(EntryOf(photo, "")));
  }
}

TEST_F(Kinds, WorkForUsersWhoAreNotRoot) {
  if (const std::string why = CommandRunner::WhyNotAs(65534); !why.empty()) GTEST_SKIP() << why;
  fs::permissions(folder.Path(), fs::perms::all);
  for (const std::string& photo : MakeOneOfEachType()) {
    fs::permissions(photo, fs::perms::all);
    for (const bool isFirst : {true, false}) {
      const Outcome made = run({"make", "--sizes", "small", "--json", photo}, As(65534));
      EXPECT_EQ(ObjectsOf(made.out).at(0).at(isFirst ? "made" : "found"), Strings{"small"}) << made;
      EXPECT_EQ(Get({"--size", "300x200"}, photo, As(65534)).at("made"), isFirst) << photo;
    }
  }
}

TEST_F(Kinds, OfRealCamerasHaveThumbnails) {
  const fs::path samples = SamplesFolder() + "-more/modern";
  if (!fs::exists(samples)) GTEST_SKIP() << "needs the samples";
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(samples)) {
    const std::string copy = folder / entry.path().filename();
    fs::copy_file(entry.path(), copy);
    fs::permissions(copy, fs::perms::owner_all);
    ++count;
    const PictureFacts facts = Identify(Get({"--size", "small", "--avatar"}, copy).at("answer"));
    EXPECT_EQ(facts.format, "JPEG") << copy;
    EXPECT_TRUE(facts.width <= 120 && facts.height <= 120 && facts.width > 0) << copy;
  }
  EXPECT_GT(count, 0U);
}

}  // namespace
}  // namespace tavithumb::test
