// SPDX-License-Identifier: GPL-3.0-or-later
// The program started as root, over folders of other users.
#include <gtest/gtest.h>
#include <pictures.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "site.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

// Users without an account.
constexpr uid_t kOwner = 41001, kOtherOwner = 41002;
constexpr char kSmallEntry[] = "TAVIFILE_THUMB_S.jpg";
constexpr char kRootsSecret[] = "a secret";

void GiveTo(uid_t user, const std::string& path) {
  ASSERT_EQ(lchown(path.c_str(), user, user), 0) << path;
}

void MakeFolderOf(uid_t owner, const std::string& path) {
  fs::create_directory(path);
  GiveTo(owner, path);
}

void MakePhotoOf(uid_t owner, const std::string& path) {
  MakeJpeg(path, 900, 600);
  fs::resize_file(path, 700000);  // too heavy for the library to serve it unchanged
  GiveTo(owner, path);
}

struct stat RecordOf(const std::string& path) {
  struct stat record = {};
  EXPECT_EQ(lstat(path.c_str(), &record), 0) << path;
  return record;
}

std::string EntryOf(const Site& site, const std::string& folder, const std::string& name) {
  return site / (folder + "/.tavi_ea/photo.jpg/" + name);
}

std::string Get(const Site& site, const std::string& address) {
  return site.Scgi({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", address}, {"SCRIPT_NAME", ""}});
}

std::string BodyOf(const std::string& response) {
  return response.substr(response.find("\r\n\r\n") + 4);
}

// A folder of root's with folders of two users in it.
class RootsProgram : public testing::TestWithParam<Front> {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
  }

  // All users note what they start and log.
  static void OpenNotes(const Site& site) {
    const std::string folder = fs::path(site.Photos()).parent_path();
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    WriteFile(folder + "/noted", "");
    ASSERT_EQ(chmod((folder + "/noted").c_str(), 0666), 0);
  }

  static void Prepare(const Site& site) {
    OpenNotes(site);
    MakePhotoOf(0, site / "photo.jpg");
    MakeFolderOf(kOwner, site / "mine");
    MakePhotoOf(kOwner, site / "mine/photo.jpg");
    MakeFolderOf(kOtherOwner, site / "theirs");
    MakePhotoOf(kOtherOwner, site / "theirs/photo.jpg");
  }
};

class RootsProgramBehind : public RootsProgram {};

INSTANTIATE_TEST_SUITE_P(Servers, RootsProgramBehind,
                         testing::Values(Front::kNginxScgi, Front::kLighttpdScgi, Front::kNginxCgi, Front::kLighttpdCgi,
                                         Front::kNginxSendfile, Front::kLighttpdSendfile),
                         testing::PrintToStringParamName());

TEST_P(RootsProgramBehind, StoresAsTheOwnerOfEachFolder) {
  const Site site(GetParam());
  Prepare(site);
  const std::pair<std::string, uid_t> folders[] = {{"mine", kOwner}, {"theirs", kOtherOwner}, {".", 0}};
  for (int i = 0; i < 2; ++i) {
    for (const auto& [folder, owner] : folders) {
      const Response response = site.Get("/thumb/" + (folder == "." ? "" : folder + "/") + "photo.jpg?size=small");
      EXPECT_EQ(response.status, 200);
      const std::string stored = EntryOf(site, folder, kSmallEntry);
      EXPECT_TRUE(response.body == ReadFile(stored)) << response.body.substr(0, 200);
      for (fs::path path = stored; path != fs::path(site / folder); path = path.parent_path()) {
        EXPECT_EQ(RecordOf(path).st_uid, owner) << path;
      }
    }
  }
}

TEST_P(RootsProgramBehind, HonoursConditionsAndRangesForAllOwners) {
  const Site site(GetParam());
  Prepare(site);
  const std::string original = ReadFile(site / "mine/photo.jpg");
  const Response part =
      Exchange(site.Port(), "GET " + site.Prefix() +
                                "/original/mine/photo.jpg HTTP/1.1\r\nHost: a\r\nConnection: close\r\nRange: "
                                "bytes=100-199\r\n\r\n");
  EXPECT_EQ(part.status, 206);
  EXPECT_TRUE(part.body == original.substr(100, 100));
  const std::string tag = site.Get("/original/mine/photo.jpg").Header("etag");
  EXPECT_NE(tag, "");
  EXPECT_EQ(site.Get("/original/mine/photo.jpg", {"If-None-Match: " + tag}).status, 304);
  EXPECT_TRUE(site.Get("/original/mine/photo.jpg?download=1").body == original);
}

TEST_F(RootsProgram, ReadsFoldersFactsAndDatesAsTheirOwners) {
  const Site site(Front::kNone);
  Prepare(site);
  MakeFolderOf(kOtherOwner, site / "mine/closed");
  chmod((site / "mine/closed").c_str(), 0700);
  const std::string list = BodyOf(Get(site, "/list/mine"));
  EXPECT_NE(list.find("\"url\":\"mine/photo.jpg\""), std::string::npos) << list;
  EXPECT_NE(list.find("\"unreadable\":1}"), std::string::npos) << list;
  EXPECT_NE(BodyOf(Get(site, "/list/")).find("\"url\":\"theirs\""), std::string::npos);
  EXPECT_NE(BodyOf(Get(site, "/original/mine/photo.jpg?facts=1")).find("\"width\":900"), std::string::npos);
  EXPECT_EQ(BodyOf(Get(site, "/list/mine?dates=1")), "{\"taken\":{},\"next\":null}\n");
  GiveTo(kOtherOwner, site / "mine/photo.jpg");
  chmod((site / "mine/photo.jpg").c_str(), 0600);
  for (const std::string address : {"/original/mine/photo.jpg?facts=1", "/original/mine/photo.jpg",
                                    "/original/mine/photo.jpg?download=1", "/thumb/mine/photo.jpg?size=small"}) {
    EXPECT_EQ(BodyOf(Get(site, address)), "permission denied\n") << address;
    const std::vector<std::string> log = site.Noted("log: ");
    ASSERT_GE(log.size(), 2U);
    EXPECT_EQ(log[log.size() - 2], "GET " + address +
                                       ": the owner of its folder, 41001, may not read it; give that user read "
                                       "permission");
    EXPECT_EQ(log.back(), "GET " + address + ": 403 permission denied");
  }
}

TEST_F(RootsProgram, BecomesTheOwnerOfItsStore) {
  const TempDir outside;
  ASSERT_EQ(chmod(outside.Path().c_str(), 0755), 0);
  MakeFolderOf(kOwner, outside / "photos");
  MakePhotoOf(kOwner, outside / "photos/photo.jpg");
  MakeFolderOf(kOtherOwner, outside / "store");
  SiteOptions options;
  options.roots = {outside / "photos"};
  options.program = {"--store", outside / "store"};
  const Site site(Front::kNone, options);
  OpenNotes(site);
  const std::string response = Get(site, "/thumb/photo.jpg?size=small");
  const std::string stored = (outside / "store") + (outside / "photos/.tavi_ea/photo.jpg/") + kSmallEntry;
  EXPECT_TRUE(BodyOf(response) == ReadFile(stored)) << response.substr(0, 300);
  EXPECT_EQ(RecordOf(stored).st_uid, kOtherOwner);
  EXPECT_NE(ReadFile("/proc/" + std::to_string(site.Program().Id()) + "/status").find("Uid:\t41002\t41002\t41002"),
            std::string::npos);
  EXPECT_FALSE(Exists(outside / "photos/.tavi_ea"));
}

// With every name that is written, and those of the folders. The targets are below the root: the sandbox would allow
// it.
TEST_F(RootsProgram, CannotBeLedToOtherFilesByLinks) {
  for (const char* option : {"--quality=75", "--library"}) {
    SiteOptions options;
    options.program = {option};
    const Site site(Front::kNone, options);
    Prepare(site);
    WriteFile(site / "secret", kRootsSecret);
    chmod((site / "secret").c_str(), 0600);
    fs::create_directories(site / "closed/photo.jpg");
    const std::string root = site / "mine/.tavi_ea", entries = root + "/photo.jpg";
    const std::pair<std::string, std::string> links[] = {
        {site / "closed", root},
        {site / "closed/photo.jpg", entries},
        {site / "secret", entries + "/TAVIFILETMP_THUMB.jpg"},
        {site / "closed/new", entries + "/TAVIFILETMP_THUMB.jpg"},
        {site / "secret", entries + "/" + kSmallEntry},
        {site / "closed/new", entries + "/" + kSmallEntry},
    };
    for (const auto& [target, link] : links) {
      SCOPED_TRACE(std::string(option) + " with a link at " + link + " to " + target);
      fs::remove_all(root);
      for (const std::string& folder : {root, entries}) {
        if (folder.size() < link.size()) MakeFolderOf(kOwner, folder);
      }
      fs::create_symlink(target, link);
      GiveTo(kOwner, link);
      const std::string response = Get(site, "/thumb/mine/photo.jpg?size=small");
      if (link == root || link == entries) {
        EXPECT_EQ(BodyOf(response), "its thumbnails would be stored through a symbolic link\n");
      }
      EXPECT_EQ(ReadFile(site / "secret"), kRootsSecret);
      EXPECT_EQ(RecordOf(site / "secret").st_mode & 07777U, 0600U);
      EXPECT_EQ(RecordOf(site / "secret").st_uid, 0U);
      EXPECT_EQ(Names(site / "closed"), std::vector<std::string>{"photo.jpg"});
      EXPECT_EQ(Names(site / "closed/photo.jpg"), std::vector<std::string>{});
    }
  }
}

}  // namespace
}  // namespace tavithumb::test
