// SPDX-License-Identifier: GPL-3.0-or-later
// Which stored thumbnails the programs keep, and which they make again.
#include <pictures.h>
#include <stored_thumbnails.h>

#include <filesystem>
#include <functional>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

class StoredThumbnails : public testing::Test {
 protected:
  StoredThumbnails() { MakePhotoForEverybody(photo); }

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
  for (const uid_t user : {uid_t{0}, uid_t{65534}}) {
    if (user != 0 && !CommandRunner::WhyNotAs(user).empty()) continue;
    for (const StoredThumbnail& row : GoodStaleAndBadThumbnails()) {
      for (const bool byGet : {false, true}) {
        const auto makes = [&] { return byGet ? GetMakes(user) : MakeMakes(user); };
        std::filesystem::remove_all(folder / ".tavi_ea");
        Plant(row, entry);
        EXPECT_EQ(makes(), row.isMadeAgain) << row.what << (byGet ? ", get" : ", make") << ", user " << user;
        EXPECT_FALSE(makes()) << row.what << (byGet ? ", get" : ", make") << ", user " << user;
        EXPECT_EQ(Identify(entry).width == 120, row.isMadeAgain || row.size == "120x80") << row.what;
        EXPECT_EQ(ModificationTime(entry), kPhotoTime) << row.what;
      }
    }
  }
}

TEST_F(StoredThumbnails, ThatAreNoPicturesStay) {
  std::filesystem::create_directories(std::filesystem::path(entry).parent_path());
  WriteFile(entry, "from elsewhere");
  SetTimes(entry, kPhotoTime, kPhotoTime);
  EXPECT_FALSE(MakeMakes(0));
  EXPECT_EQ(ReadFile(entry), "from elsewhere");
}

TEST_F(StoredThumbnails, OfOtherConsumersAreNeverTouched) {
  const std::string albumex = EntryOf(photo, "TAVIPHOTO_THUMB_S.jpg");
  Plant({"", "bmp:", "300x300", 1, false}, entry);
  std::filesystem::rename(entry, albumex);
  const std::string before = ReadFile(albumex);
  EXPECT_TRUE(MakeMakes(0));
  EXPECT_EQ(ReadFile(albumex), before);
  EXPECT_EQ(ModificationTime(albumex), 1);
}

TEST_F(StoredThumbnails, ThatTheLibraryMadeAreGoodForTheLibrary) {
  Plant({"", "bmp:", "300x200", kPhotoTime + 1, false}, entry);
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
