// SPDX-License-Identifier: GPL-3.0-or-later
// A store: a second place for EA entries, named by the environment.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <tavi/sdk.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "acls.h"
#include "children.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kServiceUser = 65534;

// The platform reads the environment once in a process, so each question is asked in one of its own.
class EAStore : public testing::Test {
 protected:
  EAStore() {
    fs::create_directories(photos);
    fs::create_directory(store);
    for (const std::string& path : {folder.Path(), photos, store}) EXPECT_EQ(chmod(path.c_str(), 0755), 0);
    WriteFile(photos + "/a.jpg", "photo");
  }

  // What ea_places reports, with blanks between; its exit status if that is not 0.
  std::string Ask(const std::vector<std::string>& arguments, const std::string& directory = "/") const {
    const std::string report = folder / ("report" + std::to_string(getpid()));
    const int status = InProcess([&] {
      // As root: the other user may not open it.
      if (std::freopen(report.c_str(), "w", stdout) == nullptr) return 255;
      if (user != 0 && (setresgid(user, user, user) | setresuid(user, user, user)) != 0) return 255;
      if (!named.empty()) setenv("TAVITHUMB_STORE", named.c_str(), 1);
      if (isForAll) setenv("TAVITHUMB_STORE_ALL", "1", 1);
      const Arguments vector(Child("ea_places"), arguments);
      if (chdir(directory.c_str()) != 0) return 255;
      execv(vector.Path(), const_cast<char* const*>(vector.Vector()));
      return 255;
    });
    if (status != 0) return std::to_string(status);
    std::string text = ReadFile(report);
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
  }

  // The answer for a source whose entries are there.
  static std::string In(const std::string& directory) { return directory + " " + directory + "/THUMB "; }
  // For one whose entry THUMB is next to it, or in the store, and whose new entries are in the other place.
  std::string OnlyThumbBeside() const { return inStore + " " + beside + "/THUMB "; }

  void WriteEntry(const std::string& place, int secondsLater) const {
    WriteFile(place + "/THUMB", "thumbnail");
    const std::time_t time = ModificationTime(photos + "/a.jpg") + secondsLater;
    SetTimes(place + "/THUMB", time, time);
  }

  // The service may read the photos; the report and the store are its own.
  void BecomeService() {
    ASSERT_EQ(chown(store.c_str(), kServiceUser, kServiceUser), 0);
    user = kServiceUser;
  }

  const TempDir folder;
  const std::string photos = folder / "photos";
  const std::string store = folder / "store";
  const std::string beside = photos + "/.tavi_ea/a.jpg";
  const std::string inStore = store + photos + "/.tavi_ea/a.jpg";
  std::string named = store;
  bool isForAll = false;
  uid_t user = 0;
};

TEST_F(EAStore, IsNotUsedForAFolderThatCanBeWritten) {
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(beside));
}

TEST_F(EAStore, MirrorsThePathsOfSourcesWithoutLinks) {
  isForAll = true;
  fs::create_directory_symlink("photos", folder / "link");
  fs::create_symlink("a.jpg", photos + "/b.jpg");
  const std::pair<std::string, std::string> rows[] = {
      {photos + "/a.jpg", photos + "/.tavi_ea/a.jpg"},
      {folder / "link/a.jpg", photos + "/.tavi_ea/a.jpg"},
      {folder / "link/../photos/./a.jpg", photos + "/.tavi_ea/a.jpg"},
      {photos + "/b.jpg", photos + "/.tavi_ea/b.jpg"},
      {photos + "/gone/deeper/x.jpg", photos + "/gone/deeper/.tavi_ea/x.jpg"},
      {folder / "link/gone/../x.jpg", photos + "/.tavi_ea/x.jpg"},
      {"/x.jpg", "/.tavi_ea/x.jpg"},
      {"//x.jpg", "/.tavi_ea/x.jpg"},
      {photos + "/../../../../../../../../x.jpg", "/.tavi_ea/x.jpg"},
      {photos + "/two  blanks\n\xFF.jpg", photos + "/.tavi_ea/two  blanks\n\xFF.jpg"},
  };
  for (const auto& [source, place] : rows) {
    SCOPED_TRACE(source);
    std::string expected = In(store + place);
    std::replace(expected.begin(), expected.end(), '\n', ' ');
    EXPECT_EQ(Ask({source}), expected);
  }
  EXPECT_EQ(Ask({"a.jpg"}, photos), In(inStore));
  EXPECT_EQ(Ask({"./a.jpg"}, folder / "link"), In(inStore));
}

TEST_F(EAStore, HasNoEntriesOfEntriesAndOfWhatIsInIt) {
  isForAll = true;
  fs::create_directory_symlink("store", folder / "way-in");
  WriteFile(store + "/x.jpg", "picture");
  for (const std::string& source : {store + "/x.jpg", folder / "way-in/x.jpg", store + "/deep/x.jpg",
                                    photos + "/.tavi_ea/a.jpg/x.jpg", inStore + "/x.jpg"}) {
    SCOPED_TRACE(source);
    EXPECT_EQ(Ask({source}), "none none ");
  }
  EXPECT_EQ(Ask({store + "s/x.jpg"}), In(store + store + "s/.tavi_ea/x.jpg"));
}

TEST_F(EAStore, IsIgnoredUnlessItsPathIsAbsolute) {
  isForAll = true;
  for (const char* name : {"", "store", "./store", "/", "//"}) {
    SCOPED_TRACE(name);
    named = name;
    EXPECT_EQ(Ask({photos + "/a.jpg"}, folder.Path()), In(beside));
  }
  named = store + "//";
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore));
}

TEST_F(EAStore, HasTheEntriesOfFoldersThatCannotBeWritten) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  BecomeService();
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore));
  EXPECT_EQ(Ask({"a.jpg"}, photos), In(inStore));
  fs::create_directories(beside);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore));
  ASSERT_EQ(chown((photos + "/.tavi_ea").c_str(), user, user), 0);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore)) << "its EA directory belongs to root";
  EXPECT_EQ(Ask({photos + "/b.jpg"}), In(photos + "/.tavi_ea/b.jpg"));
  ASSERT_EQ(chown(beside.c_str(), user, user), 0);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(beside));
}

TEST_F(EAStore, HasTheEntriesOfVolumesThatTakeNone) {
  CheckWithMounts([&]() -> std::string {
    if (mount("tmpfs", photos.c_str(), "tmpfs", 0, nullptr) != 0) return "mounts";
    WriteFile(photos + "/a.jpg", "photo");
    EXPECT_EQ(Ask({photos + "/a.jpg"}), In(beside));
    EXPECT_EQ(mount(nullptr, photos.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore));
    EXPECT_EQ(umount(photos.c_str()), 0);
    return "";
  });
}

TEST_F(EAStore, LeavesAnEntryThatIsNotOlderThanItsSourceWhereItIs) {
  isForAll = true;
  for (const int later : {0, 100}) {
    WriteEntry(beside, later);
    EXPECT_EQ(Ask({photos + "/a.jpg"}), OnlyThumbBeside()) << later;
  }
  fs::remove(photos + "/a.jpg");
  EXPECT_EQ(Ask({photos + "/a.jpg"}), OnlyThumbBeside()) << "nothing is newer than the entry of a deleted photo";
}

TEST_F(EAStore, ReplacesAStaleEntryThatCannotBeWritten) {
  isForAll = true;
  WriteEntry(beside, -1);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore));
  WriteEntry(inStore, 0);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore));
}

TEST_F(EAStore, HasTheEntryThatWasStoredLast) {
  isForAll = true;
  WriteEntry(beside, 0);
  WriteEntry(inStore, 0);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(inStore));
  WriteEntry(beside, 0);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), OnlyThumbBeside());
  WriteEntry(inStore, -1);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), OnlyThumbBeside()) << "the one in the store is stale";
}

TEST_F(EAStore, IsReadWhereTheFolderHasBecomeWritable) {
  WriteEntry(inStore, 0);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), beside + " " + inStore + "/THUMB ");
  WriteEntry(inStore, -1);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), In(beside));
}

TEST_F(EAStore, IsAsClosedAsTheFoldersOfTheSource) {
  struct {
    mode_t folder, root, mirror;
  } const rows[] = {{0755, 0755, 0711},  {0777, 0755, 0711}, {0775, 0755, 0711}, {0555, 0755, 0711},
                    {0700, 0700, 0700},  {0750, 0750, 0710}, {0744, 0744, 0700}, {01777, 0755, 0711},
                    {02770, 0750, 0710}, {0711, 0711, 0711}};
  for (const auto& [mode, root, mirror] : rows) {
    SCOPED_TRACE(testing::Message() << std::oct << mode);
    ASSERT_EQ(chmod(photos.c_str(), mode), 0);
    const mode_t before = umask(0077);
    EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), In(beside));
    umask(before);
    EXPECT_EQ(ModeOf(inStore), 0755u) << "everybody may read the photo";
    EXPECT_EQ(ModeOf(store + photos + "/.tavi_ea"), root);
    EXPECT_EQ(ModeOf(store + photos), mirror);
    for (fs::path parent = fs::path(store + photos).parent_path(); parent != store; parent = parent.parent_path()) {
      EXPECT_EQ(ModeOf(parent), 0711u) << parent;
    }
    fs::remove_all(store);
    fs::create_directory(store);
  }
}

// Those in place of which the owner of the store has a right keep none.
TEST_F(EAStore, IsAsClosedAsTheSourceAndFollowsItsRightsAndThoseOfItsFolders) {
  struct {
    mode_t folder, source, root, entries, mirror;
  } const rows[] = {{0755, 0644, 0755, 0755, 0711}, {0755, 0600, 0755, 0700, 0711}, {0777, 0640, 0755, 0750, 0711},
                    {0700, 0666, 0700, 0755, 0700}, {0755, 0604, 0755, 0705, 0711}, {0755, 0644, 0755, 0755, 0711}};
  for (const auto& [folderMode, mode, root, entries, mirror] : rows) {
    SCOPED_TRACE(testing::Message() << std::oct << folderMode << " " << mode);
    ASSERT_EQ(chmod(photos.c_str(), folderMode) | chmod((photos + "/a.jpg").c_str(), mode), 0);
    EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), In(beside));
    EXPECT_EQ(ModeOf(inStore), entries);
    EXPECT_EQ(ModeOf(store + photos + "/.tavi_ea"), root);
    EXPECT_EQ(ModeOf(store + photos), mirror);
  }
}

TEST_F(EAStore, BelongsToItsOwnerAltogether) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(chown(store.c_str(), 1234, 5678), 0);
  ASSERT_EQ(chown(photos.c_str(), 4321, 8765), 0);
  ASSERT_EQ(chmod(photos.c_str(), 0750), 0);
  for (const uid_t owner : {0, 4321, 1234, 9999}) {
    ASSERT_EQ(chown((photos + "/a.jpg").c_str(), owner, 8765), 0);
    for (const mode_t mode : {0644, 0640, 0600}) {
      SCOPED_TRACE(testing::Message() << owner << " " << std::oct << mode);
      ASSERT_EQ(chmod((photos + "/a.jpg").c_str(), mode), 0);
      for (const std::string& name : Names(store)) fs::remove_all(store + "/" + name);
      EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), In(beside));
      for (const std::string& path : {inStore, store + photos + "/.tavi_ea", store + photos}) {
        EXPECT_EQ(Facts(path).st_uid, 1234u) << path;
        EXPECT_EQ(Facts(path).st_gid, 8765u) << path;
      }
      EXPECT_EQ(ModeOf(inStore) & 0007u, mode == 0644 ? 05u : 0u);
      EXPECT_EQ(Facts(store + folder.Path()).st_gid, Facts(folder.Path()).st_gid);
    }
  }
}

TEST_F(EAStore, LetsTheOwnerOfThePhotoIn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string source = photos + "/a.jpg";
  ASSERT_EQ(chown(store.c_str(), kServiceUser, kServiceUser) | chown(source.c_str(), 4321, 4321), 0);
  ASSERT_EQ(chmod(source.c_str(), 0600), 0);
  if (!SetAttribute(store, kAccessAcl, AclWithUser(7, 5, kServiceUser, 5))) GTEST_SKIP() << "needs a volume with ACLs";
  EXPECT_EQ(Ask({source, inStore}), In(beside));
  EXPECT_EQ(Attribute(inStore, kAccessAcl),
            AclOf({{ACL_USER_OBJ, 7}, {ACL_USER, 5, 4321}, {ACL_GROUP_OBJ, 0}, {ACL_MASK, 5}, {ACL_OTHER, 0}}));
}

TEST_F(EAStore, GivesNothingToAGroupThatItsUserCannotGiveItTo) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  BecomeService();
  ASSERT_EQ(chown(photos.c_str(), 0, 8765), 0);
  ASSERT_EQ(chmod(photos.c_str(), 0751), 0);
  EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), In(inStore));
  const std::pair<std::string, mode_t> rows[] = {
      {store + photos, 0711}, {store + photos + "/.tavi_ea", 0711}, {inStore, 0755}};
  for (const auto& [path, mode] : rows) {
    EXPECT_EQ(ModeOf(path), mode) << path;
    EXPECT_EQ(Facts(path).st_uid, kServiceUser) << path;
  }
}

TEST_F(EAStore, TakesNoWriteRightFromAnAcl) {
  if (!SetAttribute(photos, kAccessAcl, AclWithUser(7, 7, 4711, 7))) GTEST_SKIP() << "needs a volume with ACLs";
  EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), In(beside));
  EXPECT_EQ(Attribute(store + photos, kAccessAcl), AclWithUser(7, 1, 4711, 1));
  EXPECT_EQ(Attribute(store + photos + "/.tavi_ea", kAccessAcl), AclWithUser(7, 5, 4711, 5));
  EXPECT_EQ(ModeOf(store + photos), 0710u);
  EXPECT_EQ(ModeOf(store + photos + "/.tavi_ea"), 0750u) << "the group's bits are the mask";
}

// A mask without search permission leaves nothing of the ACL, by which the user may do less than others.
TEST_F(EAStore, DeniesWhatAnAclDenies) {
  const std::string acl =
      AclOf({{ACL_USER_OBJ, 7}, {ACL_USER, 4, 4711}, {ACL_GROUP_OBJ, 4}, {ACL_MASK, 4}, {ACL_OTHER, 1}});
  if (!SetAttribute(photos, kAccessAcl, acl)) GTEST_SKIP() << "needs a volume with ACLs";
  EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), In(beside));
  EXPECT_EQ(ModeOf(store + photos), 0700u);
  EXPECT_EQ(Attribute(store + photos, kAccessAcl), "none");
}

TEST_F(EAStore, IsNotWrittenIfOthersMayPutLinksIntoIt) {
  isForAll = true;
  ASSERT_EQ(chmod(store.c_str(), 01777), 0);
  EXPECT_EQ(Ask({photos + "/a.jpg"}), "none " + inStore + "/THUMB ");
  EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), std::to_string(EPERM));
  EXPECT_EQ(Names(store), std::vector<std::string>{});
}

TEST_F(EAStore, IsNotWrittenByAnotherUserThanItsOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(chown(store.c_str(), 1234, 1234), 0);
  user = kServiceUser;
  EXPECT_EQ(Ask({photos + "/a.jpg"}), "none " + inStore + "/THUMB ");
  EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), std::to_string(EPERM));
}

TEST_F(EAStore, IsNotLeftByLinksAndParents) {
  fs::create_directory(folder / "elsewhere");
  fs::create_directories(fs::path(store + photos).parent_path());
  fs::create_directory_symlink(folder / "elsewhere", store + photos);
  EXPECT_EQ(Ask({photos + "/a.jpg", inStore}), std::to_string(ENOTDIR));
  EXPECT_EQ(Ask({photos + "/a.jpg", store + "/.." + photos + "/.tavi_ea/a.jpg"}), std::to_string(EPERM));
  EXPECT_EQ(Names(folder / "elsewhere"), std::vector<std::string>{});
  EXPECT_EQ(Names(photos), std::vector<std::string>{"a.jpg"});
}

TEST_F(EAStore, HasNoPathsThatAreTooLong) {
  isForAll = true;
  std::string source = photos;
  while (source.size() < 4080) source += "/" + std::string(99, 'x');
  source.resize(4050);
  EXPECT_EQ(Ask({source + "/a.jpg"}), "none none ");
}

TEST_F(EAStore, IsMadeByManyProcessesAtOnce) {
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    children.push_back(fork());
    if (children.back() == 0) _exit(Ask({photos + "/a.jpg", inStore}) == In(beside) ? 0 : 1);
  }
  for (const pid_t child : children) EXPECT_EQ(EndOf(child), 0);
  EXPECT_EQ(Names(store + photos + "/.tavi_ea"), std::vector<std::string>{"a.jpg"});
}

}  // namespace
}  // namespace tavithumb::test
