// SPDX-License-Identifier: GPL-3.0-or-later
// Which stored thumbnails the programs keep, and which they make again.
#include <pictures.h>

#include <filesystem>
#include <functional>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

class StoredThumbnails : public testing::Test {
 protected:
  StoredThumbnails() {
    RunTool({"/usr/bin/convert", "-size", "900x600", "-seed", "1", "plasma:red-blue", "-quality", "100", photo});
    SetTimes(photo, 1700000000, 1700000000);
    std::filesystem::permissions(folder.Path(), std::filesystem::perms::all);
    std::filesystem::permissions(photo, std::filesystem::perms::all);
  }

  // A picture in the place of the small thumbnail.
  void Plant(const std::string& type, const std::string& size, std::time_t time) const {
    std::filesystem::create_directories(std::filesystem::path(entry).parent_path());
    std::filesystem::permissions(folder / ".tavi_ea", std::filesystem::perms::all);
    std::filesystem::permissions(std::filesystem::path(entry).parent_path(), std::filesystem::perms::all);
    RunTool({"/usr/bin/convert", "-size", size, "xc:green", type + entry});
    SetTimes(entry, time, time);
  }

  bool WasMade(const Outcome& outcome, bool byGet) const {
    EXPECT_EQ(outcome.code, 0) << outcome;
    const nlohmann::json object = ObjectsOf(outcome.out).at(0);
    return byGet ? object.at("made").get<bool>() : object.at("made") == Strings{"small"};
  }

  bool GetMakes(uid_t user) const { return WasMade(run({"get", "--size", "small", "--json", photo}, As(user)), true); }
  bool MakeMakes(uid_t user) const {
    return WasMade(run({"make", "--sizes", "small", "--json", photo}, As(user)), false);
  }

  const TempDir folder;
  const std::string photo = folder / "photo.jpg";
  const std::string entry = EntryOf(photo, "TAVIFILE_THUMB_S.jpg");
  const CommandRunner run;
};

TEST_F(StoredThumbnails, AreMadeAgainOnceIfTheyAreStaleOrBad) {
  struct Row {
    const char* what;
    const char* type;
    const char* size;
    std::time_t time;
    bool isMadeAgain;
  };
  const Row rows[] = {
      {"good", "jpg:", "120x80", 1700000000, false},
      {"smaller than its box", "jpg:", "60x40", 1700000000, false},
      {"of another type that browsers show", "png:", "120x80", 1700000000, false},
      {"older than the photo", "jpg:", "120x80", 1699999999, true},
      {"of a newer photo that was replaced by an older one", "jpg:", "120x80", 1700000001, true},
      {"a BMP", "bmp:", "120x80", 1700000000, true},
      {"wider than its box", "jpg:", "121x80", 1700000000, true},
      {"higher than its box", "jpg:", "80x121", 1700000000, true},
      {"a single pixel", "jpg:", "1x1", 1700000000, true},
  };
  for (const uid_t user : {uid_t{0}, uid_t{65534}}) {
    if (user != 0 && !CommandRunner::WhyNotAs(user).empty()) continue;
    for (const Row& row : rows) {
      for (const bool byGet : {false, true}) {
        const auto makes = [&] { return byGet ? GetMakes(user) : MakeMakes(user); };
        std::filesystem::remove_all(folder / ".tavi_ea");
        Plant(row.type, row.size, row.time);
        EXPECT_EQ(makes(), row.isMadeAgain) << row.what << (byGet ? ", get" : ", make") << ", user " << user;
        EXPECT_FALSE(makes()) << row.what << (byGet ? ", get" : ", make") << ", user " << user;
        EXPECT_EQ(Identify(entry).width == 120, row.isMadeAgain || std::string(row.size) == "120x80") << row.what;
        EXPECT_EQ(ModificationTime(entry), 1700000000) << row.what;
      }
    }
  }
}

TEST_F(StoredThumbnails, ThatAreNoPicturesStay) {
  std::filesystem::create_directories(std::filesystem::path(entry).parent_path());
  WriteFile(entry, "from elsewhere");
  SetTimes(entry, 1700000000, 1700000000);
  EXPECT_FALSE(MakeMakes(0));
  EXPECT_EQ(ReadFile(entry), "from elsewhere");
}

TEST_F(StoredThumbnails, OfOtherConsumersAreNeverTouched) {
  const std::string albumex = EntryOf(photo, "TAVIPHOTO_THUMB_S.jpg");
  Plant("bmp:", "300x300", 1);
  std::filesystem::rename(entry, albumex);
  const std::string before = ReadFile(albumex);
  EXPECT_TRUE(MakeMakes(0));
  EXPECT_EQ(ReadFile(albumex), before);
  EXPECT_EQ(ModificationTime(albumex), 1);
}

TEST_F(StoredThumbnails, ThatTheLibraryMadeAreGoodForTheLibrary) {
  Plant("bmp:", "300x200", 1700000001);
  const nlohmann::json object = ObjectsOf(run({"get", "--library", "--size", "small", "--json", photo}).out).at(0);
  EXPECT_EQ(object.at("made"), false);
  EXPECT_EQ(ObjectsOf(run({"make", "--library", "--sizes", "small", "--json", photo}).out).at(0).at("found"),
            Strings{"small"});
  EXPECT_EQ(Identify(entry).format.substr(0, 3), "BMP");
}

// The maker declines it; what the library's tools store is a BMP.
TEST_F(StoredThumbnails, OfWhatTheMakerDeclinesAreWithinTheirBoxTooAndFoundTheNextTime) {
  const std::string whole = ReadFile(photo);
  std::string heavy = whole.substr(0, 2);
  for (int i = 0; i < 40; ++i) heavy += "\xFF\xEF\xFF\xFF" + std::string(65533, 'x');
  const std::size_t scan = whole.find("\xFF\xDA");
  WriteFile(photo, heavy + whole.substr(2, scan + 20));
  const Outcome first = run({"make", "--sizes", "small", "--json", photo});
  const nlohmann::json object = ObjectsOf(first.out).at(0);
  EXPECT_EQ(object.at("made"), Strings{"small"}) << first;
  EXPECT_EQ(object.at("by_library"), "damaged");
  EXPECT_EQ(Identify(entry).format, "JPEG");
  EXPECT_EQ(Identify(entry).width, 120);
  EXPECT_FALSE(MakeMakes(0));
  EXPECT_FALSE(GetMakes(0));
}

}  // namespace
}  // namespace tavithumb::test
