// SPDX-License-Identifier: GPL-3.0-or-later
// Who may use the directory of a source's entries.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tavi/sdk.h>

#include <filesystem>
#include <string>
#include <vector>

#include "acls.h"
#include "children.h"
#include "refused_calls.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

constexpr uid_t kAlice = 1001, kBob = 1002, kCarol = 1003, kDave = 1004;
constexpr gid_t kFamily = 2001, kOthers = 2002;

struct Person {
  const char* name;
  uid_t id;
  std::vector<gid_t> groups;
};

const std::vector<Person>& People() {
  static const std::vector<Person> people = {{"alice", kAlice, {kAlice, kFamily}},
                                             {"bob", kBob, {kBob, kFamily}},
                                             {"carol", kCarol, {kCarol, kOthers}},
                                             {"dave", kDave, {kDave}}};
  return people;
}

struct Owned {
  uid_t user;
  gid_t group;
  mode_t mode;
};

void Give(const std::string& path, const Owned& owned) {
  if (chown(path.c_str(), owned.user, owned.group) != 0 || chmod(path.c_str(), owned.mode) != 0) {
    ADD_FAILURE() << path << ": " << std::strerror(errno);
  }
}

// Whether `body` is true for this person.
bool For(const Person& person, const std::function<bool()>& body) {
  return InProcess([&] {
           if (setgroups(person.groups.size(), person.groups.data()) != 0) return 2;
           if (setresgid(person.groups[0], person.groups[0], person.groups[0]) != 0) return 2;
           if (setresuid(person.id, person.id, person.id) != 0) return 2;
           return body() ? 1 : 0;
         }) == 1;
}

std::string Join(const std::vector<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
  return joined;
}

class EntryDirectory : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to be several users";
    fs::create_directory(folder_);
    WriteFile(source_, "photo");
    ASSERT_EQ(chmod(outside_.Path().c_str(), 0755), 0);
  }

  void Set(const Owned& folder, const Owned& source) {
    fs::remove_all(folder_ + "/.tavi_ea");
    Give(folder_, folder);
    Give(source_, source);
  }

  int Make() const { return TAVIEAMKDir(1, directory_.c_str()); }

  std::string Those(const std::function<bool()>& may) const {
    std::vector<std::string> names;
    for (const Person& person : People()) {
      if (For(person, may)) names.emplace_back(person.name);
    }
    return Join(names);
  }

  std::string ReadersOfSource() const {
    return Those([this] { return access(source_.c_str(), R_OK) == 0; });
  }
  // Those who can list and search it.
  std::string Readers() const {
    return Those([this] { return access(directory_.c_str(), R_OK) == 0 && access(directory_.c_str(), X_OK) == 0; });
  }
  // Those who can do one of the two.
  std::string HalfReaders() const {
    return Those([this] { return access(directory_.c_str(), R_OK) == 0 || access(directory_.c_str(), X_OK) == 0; });
  }
  std::string Writers() const {
    return Those([this] { return access(directory_.c_str(), W_OK | X_OK) == 0; });
  }

  const TempDir outside_;
  const std::string folder_ = outside_ / "photos";
  const std::string source_ = folder_ + "/a.jpg";
  const std::string directory_ = folder_ + "/.tavi_ea/a.jpg";
};

struct Row {
  Owned folder;
  Owned source;
  const char* readers;
  const char* writers;
};

const Row kRows[] = {
    {{kAlice, kAlice, 0755}, {kAlice, kAlice, 0644}, "alice bob carol dave", "alice"},
    {{kAlice, kAlice, 0711}, {kAlice, kAlice, 0644}, "alice bob carol dave", "alice"},
    {{kAlice, kAlice, 0755}, {kAlice, kAlice, 0600}, "alice", "alice"},
    {{kAlice, kAlice, 0777}, {kAlice, kAlice, 0600}, "alice", "alice"},
    {{kAlice, kAlice, 01777}, {kAlice, kAlice, 0600}, "alice", "alice"},
    {{kAlice, kAlice, 0755}, {kAlice, kAlice, 0640}, "alice", "alice"},
    {{kAlice, kAlice, 0555}, {kAlice, kAlice, 0600}, "alice", ""},
    {{kAlice, kAlice, 0755}, {kAlice, kFamily, 0640}, "alice bob", "alice"},
    {{kAlice, kFamily, 02775}, {kAlice, kFamily, 0640}, "alice bob", "alice bob"},
    {{kAlice, kFamily, 0775}, {kAlice, kAlice, 0640}, "alice", "alice"},
    {{kAlice, kFamily, 0775}, {kAlice, kAlice, 0644}, "alice bob carol dave", "alice bob"},
    {{kAlice, kFamily, 0775}, {kAlice, kAlice, 0604}, "alice bob carol dave", "alice"},
    {{kAlice, kFamily, 0775}, {kAlice, kFamily, 0604}, "alice carol dave", "alice"},
    {{kAlice, kFamily, 0777}, {kAlice, kFamily, 0604}, "alice carol dave", "alice carol dave"},
    // A photo of another user's.
    {{kAlice, kAlice, 0755}, {kBob, kBob, 0644}, "alice bob carol dave", "alice"},
    {{kAlice, kAlice, 0755}, {kBob, kBob, 0600}, "bob", ""},
    {{kAlice, kAlice, 0777}, {kBob, kBob, 0600}, "bob", "bob"},
    {{0, 0, 01777}, {kBob, kBob, 0600}, "bob", ""},
    {{kAlice, kFamily, 02775}, {kBob, kFamily, 0600}, "bob", "bob"},
    {{kAlice, kFamily, 02775}, {kBob, kFamily, 0640}, "alice bob", "alice bob"},
    {{kAlice, kFamily, 0755}, {kBob, kFamily, 0640}, "alice bob", ""},
    {{0, 0, 0755}, {kBob, kOthers, 0640}, "bob carol", ""},
};

TEST_F(EntryDirectory, LetsInThoseWhoMayReadTheSourceAndLetsThemWriteAsInItsFolder) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(testing::Message() << row.folder.user << ":" << row.folder.group << " " << std::oct << row.folder.mode
                                    << std::dec << ", " << row.source.user << ":" << row.source.group << " " << std::oct
                                    << row.source.mode);
    Set(row.folder, row.source);
    ASSERT_EQ(Make(), 0);
    EXPECT_EQ(ReadersOfSource(), row.readers);
    EXPECT_EQ(Readers(), row.readers);
    EXPECT_EQ(HalfReaders(), row.readers);
    EXPECT_EQ(Writers(), row.writers);
  }
}

TEST_F(EntryDirectory, MadeByAnyoneWhoMayReadTheSourceLetsThemWrite) {
  for (const Row& row : kRows) {
    for (const Person& person : People()) {
      SCOPED_TRACE(testing::Message() << person.name << ": " << row.folder.user << ":" << row.folder.group << " "
                                      << std::oct << row.folder.mode << std::dec << ", " << row.source.user << ":"
                                      << row.source.group << " " << std::oct << row.source.mode);
      Set(row.folder, row.source);
      const bool mayMake =
          For(person, [&] { return access(folder_.c_str(), W_OK | X_OK) == 0 && access(source_.c_str(), R_OK) == 0; });
      if (!mayMake) continue;
      EXPECT_TRUE(For(person, [&] { return Make() == 0 && access(directory_.c_str(), R_OK | W_OK | X_OK) == 0; }));
      EXPECT_EQ(Readers(), row.readers);
      EXPECT_EQ(HalfReaders(), row.readers);
      EXPECT_EQ(Facts(directory_).st_uid, person.id);
    }
  }
}

TEST_F(EntryDirectory, BelongsToTheSourcesOwnerOnlyInAFolderOfTheirs) {
  Set({kAlice, kFamily, 02775}, {kAlice, kOthers, 0600});
  ASSERT_EQ(Make(), 0);
  EXPECT_EQ(Facts(directory_).st_uid, kAlice);
  EXPECT_EQ(Facts(directory_).st_gid, kOthers);
  EXPECT_EQ(ModeOf(directory_), 02700u);
  EXPECT_EQ(Attribute(directory_, kAccessAcl), "none");
  Set({kAlice, kFamily, 0775}, {kBob, kFamily, 0600});
  ASSERT_EQ(Make(), 0);
  EXPECT_EQ(Facts(directory_).st_uid, 0u);
  EXPECT_EQ(Attribute(directory_, kAccessAcl), AclWithUser(7, 0, kBob, 7));
}

TEST_F(EntryDirectory, LetsInThoseWhomTheAclOfTheSourceNames) {
  Set({kAlice, kAlice, 0755}, {kAlice, kAlice, 0600});
  if (!SetAttribute(source_, kAccessAcl, AclWithUser(6, 0, kCarol, 4))) GTEST_SKIP() << "needs a volume with ACLs";
  ASSERT_EQ(Make(), 0);
  EXPECT_EQ(ReadersOfSource(), "alice carol");
  EXPECT_EQ(Readers(), "alice carol");
  EXPECT_EQ(Writers(), "alice");
}

TEST_F(EntryDirectory, LetsThoseWriteWhomTheAclOfTheFolderNames) {
  Set({kAlice, kAlice, 0755}, {kAlice, kAlice, 0600});
  if (!SetAttribute(source_, kAccessAcl, AclWithUser(6, 0, kCarol, 4))) GTEST_SKIP() << "needs a volume with ACLs";
  ASSERT_TRUE(SetAttribute(folder_, kAccessAcl, AclWithUser(7, 0, kCarol, 7)));
  ASSERT_EQ(Make(), 0);
  EXPECT_EQ(Readers(), "alice carol");
  EXPECT_EQ(Writers(), "alice carol");
}

TEST_F(EntryDirectory, LetsInNobodyWhoseRightTheMaskOfTheSourcesAclTakesAway) {
  // With an empty mask, Linux goes by the mode alone.
  for (const auto& [mask, readers] : std::vector<std::pair<int, std::string>>{
           {4, "alice bob carol dave"}, {1, "alice dave"}, {0, "alice bob carol dave"}}) {
    SCOPED_TRACE(mask);
    Set({kAlice, kAlice, 0755}, {kAlice, kAlice, 0600});
    const std::string acl = AclOf({{ACL_USER_OBJ, 6},
                                   {ACL_USER, 4, kCarol},
                                   {ACL_GROUP_OBJ, 4},
                                   {ACL_GROUP, 4, kFamily},
                                   {ACL_MASK, mask},
                                   {ACL_OTHER, 4}});
    if (!SetAttribute(source_, kAccessAcl, acl)) GTEST_SKIP() << "needs a volume with ACLs";
    ASSERT_EQ(Make(), 0);
    EXPECT_EQ(ReadersOfSource(), readers);
    EXPECT_EQ(Readers(), readers);
    EXPECT_EQ(HalfReaders(), readers);
  }
}

TEST_F(EntryDirectory, LetsInNobodyElseWhereThereAreNoAcls) {
  Set({kAlice, kFamily, 0775}, {kBob, kFamily, 0640});
  CheckInProcess([&] {
    if (!RefuseCalls({SYS_setxattr, SYS_fsetxattr}, EOPNOTSUPP)) return;
    EXPECT_EQ(Make(), 0);
    EXPECT_EQ(ModeOf(directory_), 0770u);
    EXPECT_EQ(Attribute(directory_, kAccessAcl), "none");
  });
}

TEST_F(EntryDirectory, ThatExistsFollowsTheRightsOfTheSource) {
  Set({kAlice, kAlice, 0755}, {kAlice, kAlice, 0644});
  ASSERT_EQ(Make(), 0);
  WriteFile(directory_ + "/THUMB", "thumbnail");
  const struct {
    mode_t source;
    mode_t directory;
  } rows[] = {{0600, 0700}, {0640, 0750}, {0644, 0755}, {0444, 0755}, {0400, 0700}, {0000, 0000}, {0664, 0755}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << std::oct << row.source);
    ASSERT_EQ(chmod(source_.c_str(), row.source), 0);
    EXPECT_EQ(Make(), 0);
    EXPECT_EQ(ModeOf(directory_), row.directory);
    EXPECT_EQ(Names(directory_), std::vector<std::string>{"THUMB"});
  }
  fs::remove(source_);
  ASSERT_EQ(chmod(directory_.c_str(), 0711), 0);
  EXPECT_EQ(Make(), 0);
  EXPECT_EQ(ModeOf(directory_), 0711u) << "without a source";
}

TEST_F(EntryDirectory, ThatExistsIsNotTouchedWhileItsRightsAreRight) {
  for (const mode_t mode : {0644, 0600}) {
    Set({kAlice, kFamily, 02775}, {kBob, kFamily, mode});
    ASSERT_EQ(Make(), 0);
    const struct stat before = Facts(directory_);
    EXPECT_EQ(Make(), 0);
    EXPECT_EQ(Facts(directory_).st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    EXPECT_EQ(Facts(directory_).st_ctim.tv_sec, before.st_ctim.tv_sec);
  }
}

TEST_F(EntryDirectory, ThatExistsKeepsItsOwner) {
  Set({kAlice, kAlice, 0755}, {kAlice, kFamily, 0640});
  fs::create_directories(directory_);
  Give(directory_, {kDave, kDave, 0777});
  EXPECT_EQ(Make(), 0);
  EXPECT_EQ(Facts(directory_).st_uid, kDave);
  EXPECT_EQ(Facts(directory_).st_gid, kFamily);
  EXPECT_EQ(Readers(), "alice bob dave");
  EXPECT_EQ(Writers(), "alice dave");
}

TEST_F(EntryDirectory, ThatBelongsToAnotherUserIsLeftAsItIs) {
  Set({kAlice, kAlice, 0777}, {kBob, kBob, 0600});
  fs::create_directories(directory_);
  Give(directory_, {kAlice, kAlice, 0777});
  EXPECT_TRUE(For(People()[1], [&] { return Make() == 0; }));
  EXPECT_EQ(ModeOf(directory_), 0777u);
}

TEST_F(EntryDirectory, OfALinkFollowsTheRightsOfItsTarget) {
  Set({kAlice, kAlice, 0755}, {kAlice, kAlice, 0600});
  fs::create_symlink("a.jpg", folder_ + "/b.jpg");
  ASSERT_EQ(TAVIEAMKDir(1, (folder_ + "/.tavi_ea/b.jpg").c_str()), 0);
  EXPECT_EQ(ModeOf(folder_ + "/.tavi_ea/b.jpg"), 0700u);
}

}  // namespace
}  // namespace tavithumb::test
