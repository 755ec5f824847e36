// SPDX-License-Identifier: GPL-3.0-or-later
// Whose rights the programs use when root starts them, and who may read what they store.
#include <fcntl.h>
#include <grp.h>
#include <pictures.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>
#include <vector>

#include "command_runner.h"
#include "system/text.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;

// Users without an account.
constexpr uid_t kOwner = 41001, kOtherOwner = 41002;
constexpr char kSecret[] = "a secret";

void GiveTo(uid_t user, const std::string& path) {
  ASSERT_EQ(lchown(path.c_str(), user, user), 0) << path;
}

struct stat RecordOf(const std::string& path) {
  struct stat record = {};
  EXPECT_EQ(lstat(path.c_str(), &record), 0) << path;
  return record;
}

bool MayRead(uid_t user, const std::string& path) {
  const pid_t child = fork();
  if (child == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0) _exit(2);
    _exit(open(path.c_str(), O_RDONLY) == -1 ? 1 : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0;
}

using Arguments = std::vector<std::string>;

// A folder of a user's in a place of root's.
class Owners : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
    ASSERT_EQ(chmod(outside.Path().c_str(), 0755), 0);
    MakeFolder(photos, kOwner);
    MakePhotoOf(kOwner, photo);
    WriteFile(secret, kSecret);
    ASSERT_EQ(chmod(secret.c_str(), 0600), 0);
    fs::create_directories(closed + "/photo.jpg");
  }

  static void MakeFolder(const std::string& path, uid_t owner) {
    fs::create_directory(path);
    GiveTo(owner, path);
  }

  static void MakePhotoOf(uid_t owner, const std::string& path) {
    MakeJpeg(path, 900, 600);
    fs::resize_file(path, 700000);  // too heavy for the library to serve it unchanged
    GiveTo(owner, path);
  }

  // Everything that stores a thumbnail of size small. A thumbnail to be added is the user's too.
  std::vector<Arguments> Commands() const {
    return {{"get", "--size", "small", photo},
            {"get", "--library", "--size", "small", photo},
            {"make", "--sizes", "small", photo},
            {"make", "--library", "--sizes", "small", photos},
            {"add", "--size", "small", photo, ready}};
  }

  void Prepare() const {
    fs::remove_all(photos + "/.tavi_ea");
    MakeJpeg(ready, 60, 40);
    GiveTo(kOwner, ready);
  }

  void PlantLink(const std::string& target, const std::string& link) const {
    for (const std::string& folder : {photos + "/.tavi_ea", photos + "/.tavi_ea/photo.jpg"}) {
      if (folder.size() >= link.size()) break;
      fs::create_directory(folder);
      GiveTo(kOwner, folder);
    }
    fs::create_symlink(target, link);
    GiveTo(kOwner, link);
  }

  void ExpectNothingOfRootsTouched() const {
    EXPECT_EQ(ReadFile(secret), kSecret);
    EXPECT_EQ(RecordOf(secret).st_mode & 07777U, 0600U);
    EXPECT_EQ(RecordOf(secret).st_uid, 0U);
    EXPECT_EQ(Names(closed), Arguments{"photo.jpg"});
    EXPECT_EQ(Names(closed + "/photo.jpg"), Arguments{});
  }

  const TempDir outside;
  const std::string photos = outside / "photos";
  const std::string photo = photos + "/photo.jpg";
  const std::string ready = photos + "/ready.jpg";
  const std::string stored = photos + "/.tavi_ea/photo.jpg/TAVIFILE_THUMB_S.jpg";
  const std::string secret = outside / "secret";
  const std::string closed = outside / "closed";
  const CommandRunner run;
};

TEST_F(Owners, OfAFolderOwnWhatRootStoresInIt) {
  for (const Arguments& command : Commands()) {
    SCOPED_TRACE(testing::PrintToString(command));
    Prepare();
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out.find(stored) != std::string::npos, command.front() != "make") << outcome;
    for (const std::string& path : {stored, fs::path(stored).parent_path().string(), photos + "/.tavi_ea"}) {
      EXPECT_EQ(RecordOf(path).st_uid, kOwner) << path;
    }
    EXPECT_EQ(RecordOf(stored).st_mtim.tv_sec, RecordOf(photo).st_mtim.tv_sec);
  }
}

TEST_F(Owners, AreNotAskedByAUserWhoIsNotRoot) {
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  ASSERT_EQ(chmod(photos.c_str(), 0777), 0);
  const Outcome outcome = run({"get", "--size", "small", photo}, As(kNobody));
  EXPECT_EQ(outcome.out, stored + "\n") << outcome;
  EXPECT_EQ(RecordOf(stored).st_uid, kNobody);
}

TEST_F(Owners, OfSeveralFoldersGetAWorkerEachEvenIfThereIsRoomForOneOnly) {
  const std::string others = outside / "others", roots = outside / "roots";
  MakeFolder(others, kOtherOwner);
  MakeFolder(roots, 0);
  Arguments names = {"make", "--json", "--jobs", "1", "--sizes", "small"};
  std::vector<std::pair<std::string, uid_t>> expected;
  for (const std::string name : {"a.jpg", "b.jpg"}) {
    for (const auto& [folder, owner] :
         {std::pair{photos, kOwner}, std::pair{others, kOtherOwner}, std::pair{roots, uid_t{0}}}) {
      MakePhotoOf(owner, folder + "/" + name);
      names.push_back(folder + "/" + name);
      expected.emplace_back(folder + "/.tavi_ea/" + name + "/TAVIFILE_THUMB_S.jpg", owner);
    }
  }
  const Outcome outcome = run(names);
  EXPECT_EQ(outcome.code, 0) << outcome;
  for (const auto& [path, owner] : expected) EXPECT_EQ(RecordOf(path).st_uid, owner) << path;
}

TEST_F(Owners, OfTheFilesInAListAnswerTheirOwnInTurn) {
  const std::string others = outside / "others";
  MakeFolder(others, kOtherOwner);
  MakePhotoOf(kOtherOwner, others + "/photo.jpg");
  MakePhotoOf(kOwner, photos + "/b.jpg");
  const Arguments names = {photo, others + "/photo.jpg", photos + "/b.jpg", "/no/such/photo.jpg", photo};
  std::string content;
  for (const std::string& name : names) content += name + "\n";
  WriteFile(outside / "list", content);
  const Outcome outcome = run({"get", "--size", "small", "--files-from", outside / "list"});
  EXPECT_EQ(outcome.code, 1);
  const std::string storedThere = EntryOf(others + "/photo.jpg", "TAVIFILE_THUMB_S.jpg");
  EXPECT_EQ(outcome.out, stored + "\n" + storedThere + "\n" + EntryOf(photos + "/b.jpg", "TAVIFILE_THUMB_S.jpg") +
                             "\n\n" + stored + "\n");
  EXPECT_EQ(outcome.err, "tavithumb: /no/such/photo.jpg: it does not exist; check its name\n");
  EXPECT_EQ(RecordOf(stored).st_uid, kOwner);
  EXPECT_EQ(RecordOf(storedThere).st_uid, kOtherOwner);
}

// With the names that the maker and the library's tools write, and those of the folders.
TEST_F(Owners, CannotLeadRootToOtherFilesByLinks) {
  const std::string root = photos + "/.tavi_ea", entries = root + "/photo.jpg";
  const std::vector<std::pair<std::string, std::string>> links = {{closed, root},
                                                                  {closed + "/photo.jpg", entries},
                                                                  {secret, entries + "/TAVIFILETMP_THUMB.jpg"},
                                                                  {closed + "/new", entries + "/TAVIFILETMP_THUMB.jpg"},
                                                                  {secret, stored},
                                                                  {closed + "/new", stored}};
  for (const Arguments& command : Commands()) {
    for (const auto& [target, link] : links) {
      SCOPED_TRACE(testing::PrintToString(command) + " with a link at " + link + " to " + target);
      Prepare();
      PlantLink(target, link);
      const Outcome outcome = run(command);
      ExpectNothingOfRootsTouched();
      if (link == root || link == entries) {
        EXPECT_EQ(outcome.code, 1);
        EXPECT_NE(outcome.err.find("its thumbnails would be stored through a symbolic link; remove " + link),
                  std::string::npos)
            << outcome;
      }
    }
  }
}

TEST_F(Owners, CannotHaveRootRemoveOtherFilesByLinks) {
  WriteFile(closed + "/photo.jpg/TAVIFILE_THUMB_S.jpg", "older than its source");
  SetTimes(closed + "/photo.jpg/TAVIFILE_THUMB_S.jpg", 1, 1);
  for (const auto& [target, name] :
       {std::pair{closed, photos + "/.tavi_ea"}, std::pair{closed + "/photo.jpg", photos + "/.tavi_ea/photo.jpg"}}) {
    fs::remove_all(photos + "/.tavi_ea");
    PlantLink(target, name);
    const Outcome outcome = run({"clean", photos});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(ReadFile(closed + "/photo.jpg/TAVIFILE_THUMB_S.jpg"), "older than its source");
  }
}

TEST_F(Owners, WhoMayNotReadAPhotoGetAReasonInPlaceOfItsThumbnail) {
  GiveTo(kOtherOwner, photo);
  ASSERT_EQ(chmod(photo.c_str(), 0600), 0);
  for (const Arguments& command : Commands()) {
    SCOPED_TRACE(testing::PrintToString(command));
    Prepare();
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "tavithumb: " + photo +
                               ": the owner of its folder, 41001, may not read it; give that user read permission\n");
    EXPECT_FALSE(Exists(photos + "/.tavi_ea"));
  }
}

TEST_F(Owners, WhoMayNotEnterTheirFolderGetAReason) {
  ASSERT_EQ(chmod(outside.Path().c_str(), 0700), 0);
  const Outcome outcome = run({"get", "--json", "--size", "small", photo});
  EXPECT_EQ(outcome.code, 1);
  const std::string reason = "the owner of its folder, 41001, may not enter it";
  EXPECT_EQ(outcome.err, "tavithumb: " + photo + ": " + reason + "; open the folders above it to that user\n");
  EXPECT_EQ(ObjectsOf(outcome.out), (std::vector<nlohmann::json>{{{"source", photo}, {"error", reason}}}));
}

TEST_F(Owners, CleanTheirFoldersThemselves) {
  ASSERT_EQ(run({"make", "--sizes", "small,medium", photos}).code, 0);
  SetTimes(stored, 1, 1);
  // Not even root's file in a folder of the owner's own is left, but one in a folder that the owner can't write is.
  GiveTo(0, stored);
  const Outcome cleaned = run({"clean", photos});
  EXPECT_EQ(cleaned.code, 0) << cleaned;
  EXPECT_NE(cleaned.out.find("removed " + stored + ": it is older than its source\n"), std::string::npos) << cleaned;
  EXPECT_NE(cleaned.out.find(" in 1 file\n"), std::string::npos) << cleaned;
  const std::string medium = photos + "/.tavi_ea/photo.jpg/TAVIFILE_THUMB_M.jpg";
  SetTimes(medium, 1, 1);
  GiveTo(0, photos + "/.tavi_ea/photo.jpg");
  const Outcome refused = run({"clean", photos});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err, "tavithumb: " + medium +
                             ": it cannot be removed: Permission denied; make its folder writable, or run as its "
                             "owner\n");
  EXPECT_TRUE(Exists(medium));
}

TEST_F(Owners, CleanTheirFoldersByRelativePathsToo) {
  ASSERT_EQ(run({"make", "--sizes", "small", "photos"}, In(outside.Path())).code, 0);
  SetTimes(stored, 1, 1);
  const Outcome outcome = run({"clean", "--json", "photos"}, In(outside.Path()));
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(ObjectsOf(outcome.out).at(0).at("path"), stored);
  EXPECT_FALSE(Exists(stored));
}

TEST_F(Owners, ReportWhatCannotBeWritten) {
  Start start;
  start.output = "/dev/full";
  const Outcome outcome = run({"get", "--size", "small", photo, photo}, start);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: standard output: No space left on device\n");
}

// A store of another user's, who may read the photo, but not write next to it.
class OwnersOfStores : public Owners {
 protected:
  void SetUp() override {
    Owners::SetUp();
    MakeFolder(store, kOtherOwner);
  }

  // Of `size`, "S" for small.
  std::string InStore(const std::string& size = "S") const {
    return store + photos + "/.tavi_ea/photo.jpg/TAVIFILE_THUMB_" + size + ".jpg";
  }

  static Arguments WithStore(Arguments command, const std::string& folder) {
    command.insert(command.begin() + 1, {"--store", folder});
    return command;
  }
  Outcome Run(const Arguments& command) const { return run(WithStore(command, store)); }

  void EmptyStore() const {
    fs::remove_all(store);
    MakeFolder(store, kOtherOwner);
  }

  const std::string store = outside / "store";
};

TEST_F(OwnersOfStores, OwnWhatRootStoresThere) {
  for (const Arguments& command : Commands()) {
    SCOPED_TRACE(testing::PrintToString(command));
    Prepare();
    EmptyStore();
    const bool isAdded = command.front() == "add";
    const std::string mine = outside / "mine";
    fs::remove_all(mine);
    MakeFolder(mine, kOtherOwner);
    fs::rename(ready, mine + "/ready.jpg");
    GiveTo(kOtherOwner, mine + "/ready.jpg");
    Arguments adapted = command;
    if (isAdded) adapted.back() = mine + "/ready.jpg";
    const Outcome outcome = Run(adapted);
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(outcome.err, "");
    for (fs::path path = InStore(); path != store; path = path.parent_path()) {
      EXPECT_EQ(RecordOf(path).st_uid, kOtherOwner) << path;
    }
    EXPECT_EQ(RecordOf(InStore()).st_mode & 0777U, 0644U);
    EXPECT_FALSE(Exists(photos + "/.tavi_ea"));
  }
}

TEST_F(OwnersOfStores, WhoMayNotReadAPhotoGetAReasonInPlaceOfItsThumbnail) {
  ASSERT_EQ(chmod(photo.c_str(), 0600), 0);
  for (const char* command : {"get", "make"}) {
    const Outcome outcome = Run({command, photo});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "tavithumb: " + photo + ": permission denied; ask its owner for read permission\n");
  }
}

// Not even where root would stay root.
TEST_F(OwnersOfStores, CannotLeadRootToOtherFilesByLinks) {
  GiveTo(0, photos);
  const std::string entries = fs::path(InStore()).parent_path(), root = fs::path(entries).parent_path();
  const std::vector<std::pair<std::string, std::string>> links = {{closed, root},
                                                                  {closed + "/photo.jpg", entries},
                                                                  {secret, entries + "/TAVIFILETMP_THUMB.jpg"},
                                                                  {closed + "/new", entries + "/TAVIFILETMP_THUMB.jpg"},
                                                                  {secret, InStore()},
                                                                  {closed + "/new", InStore()}};
  Arguments commands[] = {{"get", "--store-all", "--size", "small", photo},
                          {"get", "--store-all", "--library", "--size", "small", photo},
                          {"make", "--store-all", "--sizes", "small", photo},
                          {"clean", photo},
                          {"clean", "--keep", "0"}};
  for (const Arguments& command : commands) {
    for (const auto& [target, link] : links) {
      SCOPED_TRACE(testing::PrintToString(command) + " with a link at " + link + " to " + target);
      EmptyStore();
      Run({"get", "--no-convert", photo});  // makes it a store
      fs::create_directories(fs::path(link).parent_path());
      for (fs::path path = fs::path(link).parent_path(); path != store; path = path.parent_path())
        GiveTo(kOtherOwner, path);
      fs::create_symlink(target, link);
      GiveTo(kOtherOwner, link);
      EXPECT_NE(Run(command).code, 2);
      ExpectNothingOfRootsTouched();
    }
  }
}

TEST_F(OwnersOfStores, CleanThemThemselves) {
  ASSERT_EQ(Run({"make", "--sizes", "small,medium", photos}).code, 0);
  GiveTo(0, InStore());
  SetTimes(InStore(), 1, 1);
  const std::string size = apps::ByteText(fs::file_size(InStore()));
  const Outcome cleaned = Run({"clean"});
  EXPECT_EQ(cleaned.out, "removed " + InStore() + ": it is older than its source\nfreed " + size + " in 1 file\n")
      << cleaned;
  const Outcome kept = Run({"clean", "--keep", "0"});
  EXPECT_EQ(kept.code, 0) << kept;
  EXPECT_EQ(Names(store), (Arguments{".size", "CACHEDIR.TAG"}));
}

TEST_F(OwnersOfStores, AreThoseOfTheFolderOfANewStore) {
  const std::string made = photos + "/new";
  const Outcome outcome = run({"get", "--store", made, "--store-all", "--size", "small", photo});
  EXPECT_EQ(outcome.out, made + photos + "/.tavi_ea/photo.jpg/TAVIFILE_THUMB_S.jpg\n") << outcome;
  EXPECT_EQ(RecordOf(made).st_uid, kOwner);
}

// In a store of root's, root stores only what is in folders of root's: it decodes no user's photos.
TEST_F(OwnersOfStores, AreNotRootForThePhotosOfOthers) {
  GiveTo(0, store);
  const Outcome beside = Run({"get", "--size", "small", photo});
  EXPECT_EQ(beside.out, stored + "\n") << beside;
  EXPECT_EQ(RecordOf(stored).st_uid, kOwner);
  for (const char* command : {"get", "make"}) {
    const Outcome refused = Run({command, "--store-all", photo});
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err.substr(0, refused.err.find('\n')),
              "tavithumb: " + photo + ": no thumbnail can be written to the store; give " + store +
                  " to a user who may read the source, and run this as that user");
  }
  GiveTo(0, photos);
  const Outcome roots = Run({"get", "--store-all", "--size", "medium", photo});
  EXPECT_EQ(roots.out, InStore("M") + "\n") << roots;
  fs::remove(photo);
  EXPECT_EQ(Run({"clean"}).code, 0);
  EXPECT_EQ(Names(store), (Arguments{".size", "CACHEDIR.TAG"}));
}

// A thumbnail is as private as its photo.
class Privacy : public Owners {
 protected:
  void ExpectReaders(mode_t mode) {
    EXPECT_EQ(MayRead(kOwner, stored), (mode & S_IRUSR) != 0);
    EXPECT_EQ(MayRead(kNobody, stored), (mode & S_IROTH) != 0);
    EXPECT_EQ(RecordOf(stored).st_mode & 0777U, (mode & 0444U) | 0600U);
    EXPECT_EQ(RecordOf(fs::path(stored).parent_path()).st_mode & 0777U, (mode & 04) != 0 ? 0755U : 0700U);
  }
};

TEST_F(Privacy, OfAPhotoIsThatOfItsThumbnails) {
  for (const Arguments& command : Commands()) {
    for (const mode_t mode : {0600, 0644, 0666}) {
      SCOPED_TRACE(testing::PrintToString(command) + " of mode " + std::to_string(mode));
      Prepare();
      ASSERT_EQ(chmod(photo.c_str(), mode) | chmod(ready.c_str(), 0666), 0);
      const Outcome outcome = run(command);
      EXPECT_EQ(outcome.code, 0) << outcome;
      ExpectReaders(mode);
    }
  }
}

TEST_F(Privacy, ThatHasChangedIsRestoredByMakeAndClean) {
  ASSERT_EQ(run({"make", "--sizes", "small", photos}).code, 0);
  const std::string folder = fs::path(stored).parent_path();
  for (const Arguments& command : {Arguments{"make", "--sizes", "small", photos}, Arguments{"clean", photos}}) {
    for (const mode_t mode : {0600, 0644}) {
      SCOPED_TRACE(command.front() + " of mode " + std::to_string(mode));
      ASSERT_EQ(chmod(photo.c_str(), mode), 0);
      Arguments dryRun = command;
      dryRun.emplace_back("--dry-run");
      EXPECT_EQ(run(dryRun).code, 0);
      EXPECT_EQ(MayRead(kNobody, stored), mode == 0600) << "a dry run changes nothing";
      EXPECT_EQ(run(command).code, 0);
      EXPECT_EQ(MayRead(kNobody, stored), mode == 0644);
      EXPECT_TRUE(MayRead(kOwner, stored));
    }
  }
}

TEST_F(Privacy, OfAPhotoIsThatOfItsThumbnailsInAStore) {
  const std::string store = outside / "store", inStore = store + stored;
  for (const uid_t owner : {kOwner, uid_t{0}}) {
    fs::remove_all(store);
    MakeFolder(store, owner);
    for (const std::string& path : {photos, photo}) GiveTo(owner, path);
    for (const Arguments& command : {Arguments{"make", "--store-all", "--sizes", "small"}, Arguments{"clean"}}) {
      for (const auto& [folderMode, mode] : {std::pair{0755, 0644}, {0755, 0600}, {0700, 0644}, {0755, 0666}}) {
        SCOPED_TRACE(command.front() + " of " + std::to_string(owner) + " " + std::to_string(mode));
        ASSERT_EQ(chmod(photos.c_str(), folderMode) | chmod(photo.c_str(), mode), 0);
        Arguments arguments = command;
        arguments.insert(arguments.end(), {"--store", store, photos});
        EXPECT_EQ(run(arguments).code, 0);
        EXPECT_TRUE(MayRead(owner, inStore));
        for (const uid_t other : {kNobody, kOtherOwner}) {
          EXPECT_EQ(MayRead(other, inStore), folderMode == 0755 && (mode & S_IROTH) != 0) << other;
        }
      }
    }
  }
}

// Its thumbnails are root's, in the directory that lets the owner in.
TEST_F(Privacy, OfAUsersPhotoInAFolderOfRootsIsKeptByTheFolder) {
  GiveTo(0, photos);
  ASSERT_EQ(chmod(photo.c_str(), 0600), 0);
  ASSERT_EQ(run({"make", "--sizes", "small", photos}).code, 0);
  EXPECT_EQ(RecordOf(stored).st_uid, 0U);
  EXPECT_TRUE(MayRead(kOwner, stored));
  EXPECT_FALSE(MayRead(kNobody, stored));
}

TEST_F(Privacy, OfAPhotoOnAVolumeWithoutThumbnailsIsThatOfItsTemporaryAnswer) {
  ASSERT_EQ(chmod(photo.c_str(), 0600), 0);
  Start start;
  start.environment = Preloading(NO_EA_VOLUME);
  for (const Arguments& way : {Arguments{"get"}, Arguments{"get", "--library"}}) {
    Arguments arguments = way;
    arguments.insert(arguments.end(), {"--size", "small", photo});
    const std::string answer = run(arguments, start).out;
    const std::string path = answer.substr(0, answer.find('\n'));
    EXPECT_EQ(RecordOf(path).st_mode & 0777U, 0600U);
    fs::remove(path);
  }
}

// Those of the library, which can't become root.
TEST_F(Owners, AndOtherUsersCauseNoLinesInTheSystemLog) {
  if (const std::string why = CommandRunner::WhyNotAs(kOwner); !why.empty()) GTEST_SKIP() << why;
  const TempDir notes;
  ASSERT_EQ(chmod(notes.Path().c_str(), 0777), 0);
  Start start = As(kOwner);
  start.environment = Preloading(LOG_PROBE);
  start.environment.push_back("LOGGED=" + (notes / "log"));
  for (const Arguments& command : Commands()) {
    SCOPED_TRACE(testing::PrintToString(command));
    Prepare();
    EXPECT_EQ(run(command, start).code, 0);
    EXPECT_FALSE(Exists(notes / "log")) << ReadFile(notes / "log");
  }
  fs::remove_all(photos + "/.tavi_ea");
  ASSERT_EQ(chmod(photos.c_str(), 0555), 0);
  const Outcome refused = run({"get", "--library", "--size", "small", photo}, start);
  EXPECT_EQ(refused.err, "tavithumb: " + photo +
                             ": no thumbnail can be written next to it; make its folder writable, or work on a copy\n");
  EXPECT_FALSE(Exists(notes / "log"));
}

}  // namespace
}  // namespace tavithumb::test
