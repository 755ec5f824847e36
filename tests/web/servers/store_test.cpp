// SPDX-License-Identifier: GPL-3.0-or-later
// Photos that the program can only read, with a store for their thumbnails.
#include <gtest/gtest.h>
#include <pictures.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <thread>
#include <vector>

#include "site.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

constexpr uid_t kReader = 65534;

SiteOptions AsReader(const std::vector<std::string>& program = {}) {
  SiteOptions options;
  options.user = kReader;
  options.hasStore = true;
  options.program = program;
  return options;
}

void MakeReadable(const std::string& path) {
  MakeJpeg(path, 1600, 1200);
  chmod(path.c_str(), 0644);
}

std::string StoredIn(const Site& site, const std::string& name, const std::string& entry) {
  return site.Store() + site.Photos() + "/.tavi_ea/" + name + "/" + entry;
}

class StoresBehind : public testing::TestWithParam<Front> {
 protected:
  void SetUp() override {
    if (const std::string why = Site::WhyNotAs(kReader); !why.empty()) GTEST_SKIP() << why;
  }
};

INSTANTIATE_TEST_SUITE_P(Servers, StoresBehind,
                         testing::Values(Front::kNginxScgi, Front::kLighttpdScgi, Front::kNginxSendfile,
                                         Front::kLighttpdSendfile),
                         testing::PrintToStringParamName());

TEST_P(StoresBehind, HaveTheThumbnailsOfPhotosThatTheProgramCanOnlyRead) {
  const Site site(GetParam(), AsReader());
  MakeReadable(site / "a b%.jpg");
  const Response made = site.Get("/thumb/a%20b%25.jpg?size=medium");
  const std::string stored = StoredIn(site, "a b%.jpg", "TAVIFILE_THUMB_M.jpg");
  EXPECT_EQ(made.status, 200);
  EXPECT_TRUE(made.body == ReadFile(stored));
  EXPECT_EQ(made.Header("tavithumb-not-stored"), "");
  const std::time_t time = ModificationTime(stored);
  const Response again = site.Get("/thumb/a%20b%25.jpg?size=medium");
  EXPECT_EQ(again.headers, made.headers);
  EXPECT_TRUE(again.body == made.body);
  EXPECT_EQ(ModificationTime(stored), time);
  EXPECT_EQ(Names(site.Photos()), std::vector<std::string>{"a b%.jpg"});
}

TEST_P(StoresBehind, AreReachedByNoAddress) {
  const Site site(GetParam(), AsReader());
  MakeReadable(site / "a.jpg");
  ASSERT_EQ(site.Get("/thumb/a.jpg?size=medium").status, 200);
  const std::string place = site.Photos() + "/.tavi_ea/a.jpg/TAVIFILE_THUMB_M.jpg";
  const std::vector<std::string> addresses = {
      "/files/.tavi_store" + place,   "/original/.tavi_store" + place,   "/thumb/.tavi_store" + place + "?size=small",
      "/list/.tavi_store/",           "/files/.tavi_store/CACHEDIR.TAG", "/original/../store" + place,
      "/original/..%2fstore" + place, "/original" + site.Store() + place};
  for (const std::string& address : addresses) {
    SCOPED_TRACE(address);
    const int status = site.Get(address).status;
    EXPECT_TRUE(status == 404 || status == 400) << status;
  }
}

class Store : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = Site::WhyNotAs(kReader); !why.empty()) GTEST_SKIP() << why;
  }
};

TEST_F(Store, HasAllNewThumbnailsIfThatIsAskedFor) {
  SiteOptions options;
  options.hasStore = true;
  options.program = {"--store-all"};
  const Site site(Front::kNginxScgi, options);
  MakeReadable(site / "a.jpg");
  EXPECT_EQ(site.Get("/thumb/a.jpg?size=medium").status, 200);
  EXPECT_TRUE(Exists(StoredIn(site, "a.jpg", "TAVIFILE_THUMB_M.jpg")));
  EXPECT_EQ(Names(site.Photos()), std::vector<std::string>{"a.jpg"});
}

TEST_F(Store, ThatCannotBeWrittenIsNamedInAnswerListAndLog) {
  const Site site(Front::kNginxScgi, AsReader());
  MakeReadable(site / "a.jpg");
  ASSERT_EQ(chmod(site.Store().c_str(), 0555), 0);
  const std::string reason = "no thumbnail can be written to the store";
  for (int i = 0; i < 2; ++i) {
    const Response response = site.Get("/thumb/a.jpg?size=medium");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.Header("content-type"), "image/jpeg");
  }
  EXPECT_NE(site.Get("/list/").body.find("\"unreadable\":0,\"not_stored\":\"" + reason + "\"}"), std::string::npos);
  const std::string line =
      "GET /thumb/a.jpg?size=medium: not stored: " + reason + "; make " + site.Store() + " writable for this user";
  EXPECT_EQ(site.Noted("log: "), (std::vector<std::string>{line, line}));
}

// As `du` measures it; what disappears meanwhile is not counted.
std::uint64_t SpaceOf(const std::string& folder) {
  std::uint64_t bytes = 0;
  std::error_code gone;
  for (fs::recursive_directory_iterator entry(folder, gone), end; entry != end; entry.increment(gone)) {
    struct stat record = {};
    if (lstat(entry->path().c_str(), &record) == 0) bytes += static_cast<std::uint64_t>(record.st_blocks) * 512;
  }
  return bytes;
}

// Each asks for thumbnails that nobody else asks for, and for each only once.
TEST_F(Store, StaysBelowItsLimitWhileSixteenClientsAskForNewThumbnails) {
  constexpr std::uint64_t limit = 2 << 20;
  const Site site(Front::kNginxScgi, AsReader({"--store-size", "2M", "--children", "8"}));
  for (int i = 0; i < 48; ++i) MakeReadable(site / (std::to_string(i) + ".jpg"));
  std::atomic<int> failed = 0, running = 16;
  const auto ask = [&](int client) {
    for (int photo = client; photo < 48; photo += 16) {
      for (const char* request : {"size=big", "size=big&rotate=1", "size=big&rotate=2", "size=big&rotate=3",
                                  "size=big&avatar=1", "size=medium", "size=medium&rotate=1", "size=small"}) {
        if (site.Get("/thumb/" + std::to_string(photo) + ".jpg?" + request).status != 200) ++failed;
      }
    }
    --running;
  };
  std::vector<std::thread> clients;
  for (int client = 0; client < 16; ++client) clients.emplace_back(ask, client);
  std::uint64_t most = 0;
  while (running > 0) most = std::max(most, SpaceOf(site.Store()));
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(failed, 0);
  EXPECT_LE(most, limit);
  EXPECT_LE(SpaceOf(site.Store()), limit);
  EXPECT_GE(most, limit / 2) << "as much is stored as may be";
  EXPECT_GE(SpaceOf(site.Store()), limit / 2) << "no more is removed than needed";
}

}  // namespace
}  // namespace tavithumb::test
