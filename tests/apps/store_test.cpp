// SPDX-License-Identifier: GPL-3.0-or-later
// Thumbnails in a store: how each subcommand finds, stores and removes them there.
#include <pictures.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "command_runner.h"
#include "system/text.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Paths = std::vector<std::string>;

constexpr char kSmallJpeg[] = "TAVIFILE_THUMB_S.jpg";

// Photos in a folder that nobody but root can write, and a store that belongs to kNobody.
class InAStore : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
    fs::create_directories(photos);
    fs::create_directory(store);
    for (const std::string& path : {folder.Path(), photos}) fs::permissions(path, fs::perms(0755));
    ASSERT_EQ(chown(store.c_str(), kNobody, kNobody), 0);
    MakePhoto(photo);
  }

  static void MakePhoto(const std::string& path, int width = 1600, int height = 1200) {
    fs::create_directories(fs::path(path).parent_path());
    MakeJpeg(path, width, height);
    fs::permissions(path, fs::perms(0644));
  }

  void GivePhotosToNobody() const { ASSERT_EQ(chown(photos.c_str(), kNobody, kNobody), 0); }

  // A path in the store that mirrors one of a photo.
  std::string Stored(const std::string& source, const std::string& entry) const {
    return EntryOf(store + source, entry);
  }

  Outcome Run(Paths arguments, const Start& start = As(kNobody)) const {
    arguments.insert(arguments.begin() + 1, {"--store", store});
    return run(arguments, start);
  }

  // With folders of its own for temporary files, so that it sees none of other programs.
  Outcome Clean(Paths arguments) const {
    Start start = As(kNobody);
    start.environment = Preloading(SURROUNDINGS);
    start.environment.push_back("TEMPORARY_FOLDERS=" + (folder / "system"));
    arguments.insert(arguments.begin(), "clean");
    return run(arguments, start);
  }
  Outcome CleanStore(Paths arguments = {}) const {
    arguments.insert(arguments.begin(), {"--store", store});
    return Clean(arguments);
  }

  // The answer of `get`, and whether it was made by this request.
  std::string Get(const Paths& options = {}, const Start& start = As(kNobody)) const {
    Paths all = {"--store", store};
    all.insert(all.end(), options.begin(), options.end());
    const json answer = AnswerOfGet(run, all, photo, start);
    return answer["answer"].get<std::string>() + (answer["made"].get<bool>() ? " made" : "");
  }

  // The whole store, without its own two files.
  Paths Files() const {
    Paths files;
    for (const auto& entry : fs::recursive_directory_iterator(store)) {
      if (entry.is_regular_file() && entry.path().parent_path() != store) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
  }

  std::uint64_t SpaceOfStore() const {
    std::uint64_t bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(store)) {
      struct stat record = {};
      if (lstat(entry.path().c_str(), &record) == 0) bytes += static_cast<std::uint64_t>(record.st_blocks) * 512;
    }
    return bytes;
  }

  const TempDir folder;
  const std::string photos = folder / "photos";
  const std::string store = folder / "store";
  const std::string photo = photos + "/a.jpg";
  const CommandRunner run;
};

TEST_F(InAStore, ThumbnailsOfAFolderThatCannotBeWrittenAreFound) {
  const std::string medium = Stored(photo, kMediumJpeg);
  EXPECT_EQ(Get(), medium + " made");
  EXPECT_EQ(Get(), medium);
  EXPECT_EQ(Get({"--library"}), medium);
  EXPECT_EQ(Get({"--no-convert"}), medium);
  EXPECT_EQ(Identify(medium).width, 360);
  EXPECT_EQ(ModificationTime(medium), ModificationTime(photo));
  EXPECT_EQ(Names(photos), Paths{"a.jpg"});
  const json avatar = AnswerOfGet(run, {"--store", store, "--avatar", "--size", "96"}, photo, As(kNobody));
  EXPECT_EQ(avatar["answer"], Stored(photo, "TAVIAVATAR_96x96.jpg"));
}

TEST_F(InAStore, TheEnvironmentNamesItToo) {
  Start start = As(kNobody);
  start.environment = {"TAVITHUMB_STORE=" + store};
  EXPECT_EQ(AnswerOfGet(run, {}, photo, start)["answer"], Stored(photo, kMediumJpeg));
  EXPECT_EQ(run({"list", photo}, start).out.find("nothing is stored"), std::string::npos);
  start.environment = {"TAVITHUMB_STORE=" + (folder / "missing")};
  EXPECT_EQ(run({"list", photo}, start).out, photo + ": nothing is stored\n");
  start.environment = {"TAVITHUMB_STORE=" + store};
  GivePhotosToNobody();
  EXPECT_EQ(AnswerOfGet(run, {"--size", "small"}, photo, start)["answer"], EntryOf(photo, kSmallJpeg));
  start.environment.emplace_back("TAVITHUMB_STORE_ALL=1");
  EXPECT_EQ(AnswerOfGet(run, {"--size", "big"}, photo, start)["answer"], Stored(photo, "TAVIFILE_THUMB_B.jpg"));
}

TEST_F(InAStore, ThumbnailsOfAWritableFolderAreStoredOnlyIfAskedFor) {
  GivePhotosToNobody();
  EXPECT_EQ(Get(), EntryOf(photo, kMediumJpeg) + " made");
  EXPECT_EQ(Get({"--store-all", "--size", "small"}), Stored(photo, kSmallJpeg) + " made");
  EXPECT_EQ(Get({"--store-all"}), EntryOf(photo, kMediumJpeg)) << "the one next to the photo is up to date";
  EXPECT_EQ(Get({"--size", "small"}), Stored(photo, kSmallJpeg));
}

TEST_F(InAStore, AStaleOrBadThumbnailThatCannotBeReplacedIsMadeAgainOnce) {
  const std::string beside = EntryOf(photo, kMediumJpeg), stored = Stored(photo, kMediumJpeg);
  MakePhoto(beside, 36, 27);
  SetTimes(beside, ModificationTime(photo), ModificationTime(photo) - 10);
  EXPECT_EQ(Get(), stored + " made");
  EXPECT_EQ(Get(), stored);
  MakeBmp(beside, 360, 270);
  SetTimes(beside, ModificationTime(photo), ModificationTime(photo));
  EXPECT_EQ(Get(), stored + " made");
  EXPECT_EQ(Get(), stored);
  MakePhoto(beside, 36, 27);
  SetTimes(beside, ModificationTime(photo), ModificationTime(photo));
  EXPECT_EQ(Get(), beside) << "it was stored last";
}

TEST_F(InAStore, MakeStoresAllSizesAndFindsThem) {
  MakePhoto(photos + "/deep/er/b.jpg");
  for (const char* made : {"8", "0"}) {
    const Outcome outcome = Run({"make", "--json", photos});
    EXPECT_EQ(outcome.code, 0) << outcome;
    const json summary = ObjectsOf(outcome.out).back();
    EXPECT_EQ(summary["made"].dump() + " " + summary["found"].dump(),
              std::string(made) + " " + std::to_string(10 - std::stoi(made)));
  }
  Paths expected;
  for (const std::string& source : {photo, photos + "/deep/er/b.jpg"}) {
    for (const char* size : {"B", "M", "S", "XL"}) {
      expected.push_back(Stored(source, std::string("TAVIFILE_THUMB_") + size + ".jpg"));
    }
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(Files(), expected);
  EXPECT_EQ(Names(photos), (Paths{"a.jpg", "deep"}));
}

TEST_F(InAStore, MakeReplacesBadThumbnailsThatCannotBeWritten) {
  const std::string beside = EntryOf(photo, kMediumJpeg);
  fs::create_directories(fs::path(beside).parent_path());
  MakeBmp(beside, 360, 270);
  SetTimes(beside, ModificationTime(photo), ModificationTime(photo));
  for (const json& expected : {json{"medium"}, json::array()}) {
    const Outcome outcome = Run({"make", "--json", "--sizes", "medium", photos});
    EXPECT_EQ(ObjectsOf(outcome.out).front()["made"], expected) << outcome;
  }
  EXPECT_EQ(Files(), Paths{Stored(photo, kMediumJpeg)});
}

TEST_F(InAStore, AddMovesThumbnailsThereAndListPrintsBothPlaces) {
  MakePhoto(EntryOf(photo, kSmallJpeg), 120, 90);
  SetTimes(EntryOf(photo, kSmallJpeg), 1, ModificationTime(photo));
  fs::create_directory(folder / "mine");
  MakeJpeg(folder / "mine/thumb.jpg", 360, 270);
  ASSERT_EQ(chown((folder / "mine").c_str(), kNobody, kNobody), 0);
  ASSERT_EQ(chown((folder / "mine/thumb.jpg").c_str(), kNobody, kNobody), 0);
  const Outcome added = Run({"add", "--size", "medium", "--check-type", photo, folder / "mine/thumb.jpg"});
  EXPECT_EQ(added.out, Stored(photo, kMediumJpeg) + "\n") << added;
  EXPECT_EQ(Names(folder / "mine"), Paths{});
  const auto listed = [&] {
    Paths lines;
    const json object = ObjectsOf(Run({"list", "--json", photo}).out).front();
    for (const json& entry : object["entries"]) {
      lines.push_back(entry["state"].get<std::string>() + " " + entry["path"].get<std::string>());
    }
    return lines;
  };
  EXPECT_EQ(listed(), (Paths{"up to date " + EntryOf(photo, kSmallJpeg), "up to date " + Stored(photo, kMediumJpeg)}));
  fs::remove(photo);
  EXPECT_EQ(listed(),
            (Paths{"source is gone " + EntryOf(photo, kSmallJpeg), "source is gone " + Stored(photo, kMediumJpeg)}));
  fs::remove_all(photos);
  EXPECT_EQ(listed(), Paths{"source is gone " + Stored(photo, kMediumJpeg)});
}

// Those that the maker declines are made by the library, which knows of no store.
TEST_F(InAStore, ThumbnailsOfVolumesThatTakeNoneAreStored) {
  MakeGif(photos + "/moving.gif", 600, 400, 3);
  MakeTiff(photos + "/scan.tif", 800, 600);
  for (const char* name : {"/moving.gif", "/scan.tif"}) fs::permissions(photos + name, fs::perms(0644));
  GivePhotosToNobody();
  Start start = As(kNobody);
  start.environment = Preloading(NO_EA_VOLUME);
  const Paths temporaries = TemporaryFiles();
  EXPECT_EQ(Get({}, start), Stored(photo, kMediumJpeg) + " made");
  EXPECT_EQ(Get({}, start), Stored(photo, kMediumJpeg));
  const Outcome made = Run({"make", "--json", "--sizes", "small", photos}, start);
  EXPECT_EQ(ObjectsOf(made.out).back()["failed"], 0) << made;
  const Paths rows[][3] = {{{"--keep-animation"}, {"moving.gif"}, {"TAVIFILE_THUMB_M.gif"}},
                           {{"--library"}, {"scan.tif"}, {"TAVIFILE_THUMB_M.jpg"}}};
  for (const auto& [option, name, entry] : rows) {
    for (const bool isMade : {true, false}) {
      const json answer = AnswerOfGet(run, {"--store", store, option[0]}, photos + "/" + name[0], start);
      EXPECT_EQ(answer["answer"], Stored(photos + "/" + name[0], entry[0]));
      EXPECT_EQ(answer["made"], isMade);
      EXPECT_EQ(answer["delete"], false);
    }
  }
  EXPECT_EQ(TemporaryFiles(), temporaries);
}

TEST_F(InAStore, ThumbnailsOfADiskImageAreStored) {
  if (!Exists("/usr/bin/mksquashfs")) GTEST_SKIP() << "needs mksquashfs";
  const std::string image = folder / "image", volume = folder / "volume";
  fs::create_directory(volume);
  RunTool({"/usr/bin/mksquashfs", photos, image, "-noappend", "-quiet", "-no-progress"});
  const std::string mount = "mount -t squashfs -o loop,ro " + image + " " + volume + " 2>/dev/null";
  if (std::system(mount.c_str()) != 0) GTEST_SKIP() << "needs loop devices";
  for (const bool isMade : {true, false}) {
    const json answer = AnswerOfGet(run, {"--store", store}, volume + "/a.jpg", {});
    EXPECT_EQ(answer["answer"], Stored(volume + "/a.jpg", kMediumJpeg));
    EXPECT_EQ(answer["made"], isMade);
  }
  EXPECT_EQ(ObjectsOf(Run({"make", "--json", volume}, {}).out).back()["failed"], 0);
  umount(volume.c_str());
}

TEST_F(InAStore, NothingIsStoredForAnotherUserThanItsOwner) {
  ASSERT_EQ(chown(store.c_str(), 1234, 1234), 0);
  const Outcome outcome = Run({"get", photo});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: " + photo + ": no thumbnail can be written to the store; make " + store +
                             " writable for this user\n");
}

TEST_F(InAStore, CleanRemovesWhatBelongsToPhotosThatAreGone) {
  const std::string moved = photos + "/deep/b.jpg";
  MakePhoto(moved);
  ASSERT_EQ(Run({"make", "--sizes", "small", photos}).code, 0);
  const std::string small = Stored(photo, kSmallJpeg), ofMoved = Stored(moved, kSmallJpeg);
  ASSERT_EQ(Files(), (Paths{small, ofMoved}));
  EXPECT_EQ(CleanStore().out, "freed 0 bytes in 0 files\n");

  fs::rename(moved, photos + "/c.jpg");
  fs::remove(photos + "/deep");
  const std::string size = apps::ByteText(fs::file_size(ofMoved));
  const std::string mirror = store + photos + "/deep";
  const std::string removed = "removed " + ofMoved + ": its source is gone\nremoved " +
                              fs::path(ofMoved).parent_path().string() + ": nothing is left in it\nremoved " + mirror +
                              "/.tavi_ea: nothing is left in it\n";
  EXPECT_EQ(CleanStore({photos + "/c.jpg"}).out, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(CleanStore({photos + "/deep/b.jpg"}).out, removed + "freed " + size + " in 1 file\n");
  EXPECT_EQ(CleanStore({photos}).out, "removed " + mirror + ": nothing is left in it\nfreed 0 bytes in 0 files\n");
  EXPECT_EQ(Files(), Paths{small});

  fs::remove_all(photos);
  WriteFile(photos, "no folder");
  EXPECT_EQ(CleanStore().code, 0);
  EXPECT_EQ(Names(store), (Paths{".size", "CACHEDIR.TAG"}));
}

TEST_F(InAStore, CleanKnowsAStoreByItsTag) {
  ASSERT_EQ(Run({"make", "--sizes", "small", photos}).code, 0);
  const Paths before = Files();
  for (const std::string& path : {store, folder.Path()}) {
    const Outcome outcome = Clean({path});
    EXPECT_EQ(outcome.out, "freed 0 bytes in 0 files\n") << path;
    EXPECT_EQ(Files(), before);
  }
  fs::remove(photo);
  EXPECT_EQ(Clean({folder.Path()}).code, 0);
  EXPECT_EQ(Files(), Paths{});
}

TEST_F(InAStore, CleanKeepsWhatWasUsedLast) {
  const std::string others[] = {photos + "/b.jpg", photos + "/c.jpg", photos + "/d.jpg"};
  for (const std::string& other : others) MakePhoto(other);
  ASSERT_EQ(Run({"make", "--sizes", "medium", photos}).code, 0);
  const std::string used[] = {Stored(others[2], kMediumJpeg), Stored(photo, kMediumJpeg)};
  std::time_t later = std::time(nullptr) + 100;
  for (const std::string& path : {Stored(others[0], kMediumJpeg), Stored(others[1], kMediumJpeg), used[0], used[1]}) {
    SetTimes(path, ++later, ModificationTime(photo));
  }
  const std::uint64_t all = SpaceOfStore();
  struct stat file = {}, directory = {};
  ASSERT_EQ(stat(used[0].c_str(), &file) | stat(fs::path(used[0]).parent_path().c_str(), &directory), 0);
  const auto one = static_cast<std::uint64_t>(file.st_blocks + directory.st_blocks) * 512;

  const std::string keep = std::to_string(all - 2 * one);
  const Outcome dry = CleanStore({"--dry-run", "--keep", keep});
  EXPECT_NE(dry.out.find("would remove " + Stored(others[0], kMediumJpeg)), std::string::npos) << dry;
  EXPECT_EQ(Files().size(), 4u);
  const Outcome outcome = CleanStore({"--keep", keep});
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(Files(), (Paths{Stored(photo, kMediumJpeg), Stored(others[2], kMediumJpeg)}));
  EXPECT_LE(SpaceOfStore(), std::stoull(keep));
  std::string expected;
  for (const std::string& other : {others[0], others[1]}) {
    const std::string entry = Stored(other, kMediumJpeg);
    expected += "removed " + entry + ": it was not used for longest\nremoved " +
                fs::path(entry).parent_path().string() + ": nothing is left in it\n";
  }
  EXPECT_EQ(outcome.out.substr(0, outcome.out.find("freed")), expected);

  EXPECT_EQ(CleanStore({"--keep", "100%"}).out, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(CleanStore({"--keep", "0"}).code, 0);
  EXPECT_EQ(Names(store), (Paths{".size", "CACHEDIR.TAG"}));
}

// The count is never less than what is used, so that no limit is exceeded.
TEST_F(InAStore, EveryStoringIsCounted) {
  Get({"--size", "small"});
  EXPECT_EQ(CleanStore({"--keep", "100%"}).code, 0);
  for (int i = 0; i < 8; ++i) MakePhoto(photos + "/" + std::to_string(i) + ".jpg");
  ASSERT_EQ(Run({"make", "--jobs", "4", photos}).code, 0);
  Get({"--size", "100x100"});
  const std::uint64_t counted = std::stoull(ReadFile(store + "/.size"));
  EXPECT_EQ(CleanStore({"--keep", "100%"}).code, 0);
  const std::uint64_t measured = std::stoull(ReadFile(store + "/.size"));
  EXPECT_GE(counted + 6 * 4096, measured) << "folders above the sources are not counted";
  EXPECT_EQ(measured, SpaceOfStore());
}

TEST_F(InAStore, OnlyAnEmptyFolderBecomesAStore) {
  WriteFile(folder / "full/file", "");
  const std::pair<std::string, std::string> rows[] = {
      {folder / "full", "it contains other files; name a new or an empty folder"},
      {folder / "full/file", "it is not a folder; name one"},
      {folder / "missing/deep", "it cannot be accessed (No such file or directory); name a folder"},
      {"/", "it is the root folder; name another"},
  };
  for (const auto& [name, reason] : rows) {
    for (const char* subcommand : {"get", "make", "list", "clean"}) {
      const Outcome outcome = run({subcommand, "--store", name, photo});
      EXPECT_EQ(outcome.code, 2);
      EXPECT_EQ(outcome.err, "tavithumb: '" + name + "' cannot be the store: " + reason + "; see 'tavithumb " +
                                 subcommand + " --help'\n");
    }
  }
  EXPECT_EQ(Names(folder / "full"), Paths{"file"});
  EXPECT_EQ(run({"get", "--store", folder / "new", "--store-all", photo}).out,
            EntryOf(folder / "new" + photo, kMediumJpeg) + "\n");
  EXPECT_EQ(run({"get", "--store-all", photo}).err,
            "tavithumb: --store-all needs --store; see 'tavithumb get --help'\n");
  EXPECT_EQ(run({"clean", "--keep", "1G", photo}).err,
            "tavithumb: --keep needs --store; see 'tavithumb clean --help'\n");
}

}  // namespace
}  // namespace tavithumb::test
