// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb list`: what is stored for a source, as a table and as JSON.
#include <pictures.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>

#include "command_runner.h"
#include "system/text.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class List : public testing::Test {
 protected:
  void ExpectTable(const std::vector<std::string>& sources, const std::string& out, const std::string& err = "") const {
    std::vector<std::string> arguments = {"list", "--"};
    arguments.insert(arguments.end(), sources.begin(), sources.end());
    const Outcome outcome = run(arguments, In(folder.Path()));
    EXPECT_EQ(outcome.out, out);
    EXPECT_EQ(outcome.err, err);
    EXPECT_EQ(outcome.code, err.empty() ? 0 : 1);
  }

  // The path of an entry, which is created with the time of its source.
  std::string Place(const std::string& source, const std::string& entry) const {
    return EntryOf(folder / source, entry);
  }
  void Store(const std::string& source, const std::string& entry, const std::string& content) const {
    WriteFile(Place(source, entry), content);
    SetTimes(Place(source, entry), 1, ModificationTime(folder / source));
  }

  json Entry(const std::string& source, const std::string& entry, const std::string& consumer, const json& size,
             const json& rotation, const std::string& state = "up to date") const {
    return {
        {"path", Place(source, entry)}, {"consumer", consumer}, {"size", size}, {"rotation", rotation}, {"bytes", 7},
        {"picture", nullptr},           {"state", state}};
  }

  const TempDir folder;
  const CommandRunner run;
};

TEST_F(List, PrintsTheConsumerOfEachEntry) {
  WriteFile(folder / "a.jpg", "photo");
  const std::vector<std::string> entries = {"TAVIAVATAR_480x640_r1.jpg",      "TAVIFILETMP_THUMB.jpg_1_2",
                                            "TAVIFILETMP_THUMB_r3.gif",       "TAVIFILE_THUMB_300x200.jpg",
                                            "TAVIFILE_THUMB_XL_r-1.png",      "TAVIFILE_THUMB_XL_r4.png",
                                            "TAVIPHOTO:THUMB_S.jpg",          "TAVIPHOTO_THUMB_B.jpg",
                                            "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", "notes"};
  for (const std::string& entry : entries) Store("a.jpg", entry, "no pic\n");
  const Outcome outcome = run({"list", "--json", "a.jpg"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  const json expected = {
      {"source", folder / "a.jpg"},
      {"entries",
       {Entry("a.jpg", entries[0], "avatar", "480x640", 1), Entry("a.jpg", entries[1], "Brovix temporary", nullptr, 0),
        Entry("a.jpg", entries[2], "Brovix temporary", nullptr, 3), Entry("a.jpg", entries[3], "Brovix", "300x200", 0),
        Entry("a.jpg", entries[4], "Brovix", "large/xlarge", -1), Entry("a.jpg", entries[5], "other", nullptr, nullptr),
        Entry("a.jpg", entries[6], "Albumex old", "small", 0), Entry("a.jpg", entries[7], "Albumex", "big", 0),
        Entry("a.jpg", entries[8], "Cinevo", nullptr, 0), Entry("a.jpg", entries[9], "other", nullptr, nullptr)}},
      {"error", nullptr}};
  EXPECT_EQ(ObjectsOf(outcome.out), std::vector<json>{expected});
}

TEST_F(List, PrintsOneAlignedTableWithTheTypesOfTheContent) {
  WriteFile(folder / "a.jpg", "photo");
  WriteFile(folder / "b.png", "photo");
  WriteFile(folder / "none.jpg", "photo");
  MakeBmp(folder / "thumb.bmp", 60, 40);
  MakePng(folder / "thumb.png", 6, 4);
  Store("a.jpg", "TAVIFILE_THUMB_M.jpg", ReadFile(folder / "thumb.bmp"));
  Store("a.jpg", "TAVIFILE_THUMB_S.jpg", "no picture");
  Store("b.png", "TAVIAVATAR_9x9_r-1.png", ReadFile(folder / "thumb.png"));
  SetTimes(Place("b.png", "TAVIAVATAR_9x9_r-1.png"), 1, ModificationTime(folder / "b.png") - 1);
  const std::string bmpBytes = apps::ByteText(fs::file_size(folder / "thumb.bmp"));
  const std::string pngBytes = apps::ByteText(fs::file_size(folder / "thumb.png"));
  ASSERT_EQ(bmpBytes.size(), 6u);  // "7.3 kB"
  ASSERT_EQ(pngBytes.size(), 9u);  // "123 bytes"
  ExpectTable({"a.jpg", "missing.jpg", "none.jpg", "b.png"},
              "CONSUMER  SIZE    ROTATION  PIXELS  BYTES      TYPE            STATE       PATH\n"
              "Brovix    medium  0         60x40   " +
                  bmpBytes + "     image/x-ms-bmp  up to date  " + Place("a.jpg", "TAVIFILE_THUMB_M.jpg") + "\n" +
                  "Brovix    small   0         -       10 bytes   -               up to date  " +
                  Place("a.jpg", "TAVIFILE_THUMB_S.jpg") + "\n" + "avatar    9x9     -90       6x4     " + pngBytes +
                  "  image/png       stale       " + Place("b.png", "TAVIAVATAR_9x9_r-1.png") + "\n" +
                  "none.jpg: nothing is stored\n",
              "tavithumb: missing.jpg: it does not exist; check its name\n");
}

TEST_F(List, HasADashForWhatIsUnknown) {
  WriteFile(folder / "a.jpg", "photo");
  Store("a.jpg", "notes.txt", "no thumbnail");
  ExpectTable({"a.jpg"},
              "CONSUMER  SIZE  ROTATION  PIXELS  BYTES     TYPE  STATE       PATH\n"
              "other     -     -         -       12 bytes  -     up to date  " +
                  Place("a.jpg", "notes.txt") + "\n");
}

TEST_F(List, SaysPlainlyThatNothingIsStored) {
  WriteFile(folder / "a.jpg", "photo");
  ExpectTable({"a.jpg"}, "a.jpg: nothing is stored\n");
  fs::create_directories(Place("a.jpg", ""));
  ExpectTable({"a.jpg"}, "a.jpg: nothing is stored\n");
  const Outcome outcome = run({"list", "--json", "a.jpg"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(ObjectsOf(outcome.out),
            (std::vector<json>{{{"source", folder / "a.jpg"}, {"entries", json::array()}, {"error", nullptr}}}));
}

TEST_F(List, PrintsThePictureInJson) {
  MakePng(folder / "a.png", 600, 400);
  const std::string place = Place("a.png", "TAVIFILE_THUMB_S.png");
  ASSERT_EQ(run({"get", "--size=small", folder / "a.png"}).code, 0);
  const Outcome outcome = run({"list", "--json", folder / "a.png"});
  EXPECT_EQ(ObjectsOf(outcome.out),
            (std::vector<json>{{{"source", folder / "a.png"},
                                {"entries",
                                 {{{"path", place},
                                   {"consumer", "Brovix"},
                                   {"size", "small"},
                                   {"rotation", 0},
                                   {"bytes", fs::file_size(place)},
                                   {"picture", {{"mime_type", "image/png"}, {"width", 120}, {"height", 80}}},
                                   {"state", "up to date"}}}},
                                {"error", nullptr}}}));
}

TEST_F(List, ListsWhatIsStoredForADeletedSource) {
  WriteFile(folder / "a.jpg", "photo");
  Store("a.jpg", kMediumJpeg, "no pic\n");
  fs::remove(folder / "a.jpg");
  const Outcome outcome = run({"list", "--json", "a.jpg"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(ObjectsOf(outcome.out),
            (std::vector<json>{{{"source", folder / "a.jpg"},
                                {"entries", {Entry("a.jpg", kMediumJpeg, "Brovix", "medium", 0, "source is gone")}},
                                {"error", nullptr}}}));
}

TEST_F(List, HasNoStateIfTheSourceIsNotAFileThatCanBeExamined) {
  WriteFile(folder / "a.jpg", "photo");
  Store("a.jpg", kMediumJpeg, "no pic\n");
  fs::remove(folder / "a.jpg");
  fs::create_symlink("nowhere", folder / "a.jpg");
  const Outcome outcome = run({"list", "--json", "a.jpg"}, In(folder.Path()));
  EXPECT_EQ(ObjectsOf(outcome.out).at(0).at("entries"),
            (json{Entry("a.jpg", kMediumJpeg, "Brovix", "medium", 0, "unknown")}));
}

TEST_F(List, SkipsAnythingThatIsNotAFile) {
  WriteFile(folder / "a.jpg", "photo");
  Store("a.jpg", kMediumJpeg, "no pic\n");
  fs::create_symlink(kMediumJpeg, Place("a.jpg", "TAVIFILE_THUMB_S.jpg"));
  fs::create_directory(Place("a.jpg", "TAVIFILE_THUMB_B.jpg"));
  ASSERT_EQ(mkfifo(Place("a.jpg", "TAVIFILE_THUMB_XL.jpg").c_str(), 0600), 0);
  ExpectTable({"a.jpg"},
              "CONSUMER  SIZE    ROTATION  PIXELS  BYTES    TYPE  STATE       PATH\n"
              "Brovix    medium  0         -       7 bytes  -     up to date  " +
                  Place("a.jpg", kMediumJpeg) + "\n");
}

TEST_F(List, RejectsFilesThatCannotHaveThumbnails) {
  WriteFile(folder / "notes.txt", "text");
  const std::string longName(100000, 'n');
  ExpectTable({"missing.jpg", "notes.txt", longName, ""}, "",
              "tavithumb: missing.jpg: it does not exist; check its name\n"
              "tavithumb: notes.txt: it is not a photo or video by its name; give it the right extension, such as .jpg "
              "or .mp4\n"
              "tavithumb: " +
                  longName +
                  ": it cannot be accessed: File name too long; check its path\n"
                  "tavithumb: : it does not exist; check its name\n");
  const Outcome outcome = run({"list", "--json", "missing.jpg"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(ObjectsOf(outcome.out),
            (std::vector<json>{{{"source", folder / "missing.jpg"}, {"error", "it does not exist"}}}));
}

TEST_F(List, ReportsWhatItMayNotRead) {
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  WriteFile(folder / "a.jpg", "photo");
  Store("a.jpg", kMediumJpeg, "no pic\n");
  fs::permissions(folder.Path(), fs::perms(0755));
  for (const std::string& closed : {Place("a.jpg", ""), folder / ".tavi_ea"}) {
    fs::permissions(closed, fs::perms(0700));
    const Outcome outcome = run({"list", folder / "a.jpg"}, As(kNobody));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "tavithumb: " + (folder / "a.jpg") + ": permission denied; ask its owner for read permission\n");
  }
}

TEST_F(List, AcceptsNamesWithAnyBytes) {
  WriteFile(folder / "new\nline.jpg", "photo");
  WriteFile(folder / "latin\xfc.jpg", "photo");
  Store("new\nline.jpg", kMediumJpeg, "no pic\n");
  Store("latin\xfc.jpg", "not\xfc", "no pic\n");
  ExpectTable({"new\nline.jpg"},
              "CONSUMER  SIZE    ROTATION  PIXELS  BYTES    TYPE  STATE       PATH\n"
              "Brovix    medium  0         -       7 bytes  -     up to date  " +
                  folder.Path() + "/.tavi_ea/new\\nline.jpg/TAVIFILE_THUMB_M.jpg\n");
  const json object = ObjectsOf(run({"list", "--json", "latin\xfc.jpg"}, In(folder.Path())).out).at(0);
  EXPECT_EQ(object.at("source"), folder / "latin\xef\xbf\xbd.jpg");
  EXPECT_TRUE(object.contains("source_hex"));
  EXPECT_EQ(object.at("entries").at(0).at("path"), folder / ".tavi_ea/latin\xef\xbf\xbd.jpg/not\xef\xbf\xbd");
  EXPECT_TRUE(object.at("entries").at(0).contains("path_hex"));
}

std::uint64_t DiskOf(const std::string& path) {
  struct stat record = {};
  return stat(path.c_str(), &record) == 0 ? static_cast<std::uint64_t>(record.st_blocks) * 512 : 0;
}

json Total(const std::string& consumer, const json& size, int files, int stale, int gone, std::uint64_t disk) {
  return {{"consumer", consumer}, {"size", size}, {"files", files}, {"stale", stale}, {"gone", gone}, {"disk", disk}};
}

TEST_F(List, AddsUpWhatIsStoredForAFolder) {
  for (const char* name : {"a.jpg", "inner/b.jpg", "inner/deep/c.png", "inner/deep/gone.png"})
    WriteFile(folder / name, "photo");
  const std::vector<std::pair<std::string, std::string>> entries = {{"a.jpg", "TAVIFILE_THUMB_S.jpg"},
                                                                    {"inner/b.jpg", "TAVIFILE_THUMB_S.jpg"},
                                                                    {"inner/deep/c.png", "TAVIFILE_THUMB_S.png"},
                                                                    {"inner/deep/gone.png", "TAVIFILE_THUMB_S.png"},
                                                                    {"a.jpg", "TAVIPHOTO_THUMB_B.jpg"},
                                                                    {"a.jpg", "TAVIFILETMP_THUMB.jpg_1_2"},
                                                                    {"a.jpg", "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"},
                                                                    {"a.jpg", "notes"}};
  for (const auto& [source, entry] : entries) Store(source, entry, std::string(5000, 'x'));
  SetTimes(Place("inner/b.jpg", "TAVIFILE_THUMB_S.jpg"), 1, 1);
  fs::remove(folder / "inner/deep/gone.png");
  fs::create_directory_symlink(folder / "inner", folder / "link");
  const std::uint64_t disk = DiskOf(Place("a.jpg", "notes"));
  ASSERT_GT(disk, 0U);
  const Outcome outcome = run({"list", "--json", "."}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(ObjectsOf(outcome.out),
            (std::vector<json>{{{"source", folder / "."},
                                {"totals",
                                 {Total("Albumex", "big", 1, 0, 0, disk), Total("Brovix", "small", 4, 1, 1, 4 * disk),
                                  Total("Brovix temporary", nullptr, 1, 0, 0, disk),
                                  Total("Cinevo", nullptr, 1, 0, 0, disk), Total("other", nullptr, 1, 0, 0, disk)}},
                                {"error", nullptr}}}));
  const std::string one = apps::ByteText(disk), four = apps::ByteText(4 * disk), all = apps::ByteText(8 * disk);
  const std::size_t width = std::max({one.size(), four.size(), all.size()}) + 2;
  const auto cell = [width](const std::string& text) { return text + std::string(width - text.size(), ' '); };
  ExpectTable({"."}, "CONSUMER          SIZE   FILES  STALE  SOURCE GONE  " + cell("DISK") + "FOLDER\n" +
                         "Albumex           big    1      0      0            " + cell(one) + ".\n" +
                         "Brovix            small  4      1      1            " + cell(four) + ".\n" +
                         "Brovix temporary  -      1      0      0            " + cell(one) + ".\n" +
                         "Cinevo            -      1      0      0            " + cell(one) + ".\n" +
                         "other             -      1      0      0            " + cell(one) + ".\n" +
                         "all               -      8      1      1            " + cell(all) + ".\n");
}

TEST_F(List, AddsUpWhatTheStoreHasOfAFolder) {
  fs::create_directory(folder / "photos");
  MakePng(folder / "photos/a.png", 900, 600);
  const std::string store = folder / "store";
  EXPECT_EQ(run({"make", "--sizes", "small", "--store", store, "--store-all", folder / "photos"}).code, 0);
  fs::create_directory_symlink(folder / "photos", folder / "link");
  for (const char* name : {"photos", "link", ""}) {
    const Outcome outcome = run({"list", "--json", "--store", store, folder / name});
    const std::vector<json> objects = ObjectsOf(outcome.out);
    ASSERT_EQ(objects.size(), 1U) << outcome;
    ASSERT_EQ(objects[0]["totals"].size(), 1U) << name;
    EXPECT_EQ(objects[0]["totals"][0]["files"], 1) << name;
    EXPECT_EQ(objects[0]["totals"][0]["gone"], 0) << name;
  }
}

TEST_F(List, SaysThatNothingIsStoredForAFolder) {
  fs::create_directory(folder / "empty\nfolder");
  ExpectTable({folder / "empty\nfolder"}, folder / "empty\\nfolder: nothing is stored\n");
}

TEST_F(List, ReportsAFolderThatCannotBeRead) {
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  chmod(folder.Path().c_str(), 0755);
  fs::create_directory(folder / "closed");
  chmod((folder / "closed").c_str(), 0700);
  for (const char* subcommand : {"list", "info"}) {
    const Outcome outcome = run({subcommand, "--json", folder.Path()}, As(kNobody));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.err.find(folder / "closed: permission denied; ask its owner for read permission\n"),
              std::string::npos)
        << outcome;
    EXPECT_EQ(ObjectsOf(outcome.out)[0]["error"], "some folders could not be read");
  }
}

}  // namespace
}  // namespace tavithumb::test
