// SPDX-License-Identifier: GPL-3.0-or-later
// Nothing outside the roots is ever served.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <pictures.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

#include "site.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

// Content of files outside the roots.
constexpr char kSecret[] = "the secret of the house";

// Whether tools may read in a folder, whatever the roots are.
bool IsOfTheSystem(const fs::path& folder) {
  const std::string path = fs::canonical(folder).string() + "/";
  const auto isAbove = [&path](const std::string& other) { return path.rfind(other, 0) == 0; };
  const std::array folders = {"/tmp/",   "/var/tmp/", "/usr/", "/bin/", "/lib/",          "/lib32/",
                              "/lib64/", "/etc/",     "/opt/", "/dev/", "/var/packages/", "/proc/"};
  return std::any_of(folders.begin(), folders.end(), isAbove);
}

// A folder in which tools may not read, removed at the end. There is none if this user can't create one.
class Outside {
 public:
  Outside() {
    const char* const home = std::getenv("HOME");
    for (const std::string folder : {BUILD_FOLDER, home == nullptr ? "" : home, "/srv"}) {
      path_ = folder + "/outside-XXXXXX";
      if (fs::is_directory(folder) && !IsOfTheSystem(folder) && mkdtemp(path_.data()) != nullptr) break;
      path_.clear();
    }
    if (!path_.empty()) chmod(path_.c_str(), 0755);
  }
  ~Outside() { fs::remove_all(path_); }
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;
  bool IsThere() const { return !path_.empty(); }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

constexpr char kNeedsOutside[] = "needs a folder of this user outside the system's and the temporary folders";

// A valid picture, with the secret in a comment.
void MakeSecret(const std::string& path) {
  RunTool({"/usr/bin/convert", "-size", "20x10", "xc:red", "-set", "comment", kSecret, "jpeg:" + path});
}

bool IsSecret(const std::string& text) {
  return text.find(kSecret) != text.npos || text.find("root:x:0:0") != text.npos;
}

// Spellings of "..", "/" and names that lead outside, in all combinations.
std::vector<std::string> Attempts() {
  std::vector<std::string> attempts;
  for (const char* up : {"..", "%2e%2e", "%2E.", ".%2e", "%252e%252e", "..%00", "...", "%c0%ae%c0%ae", "..;", ".. ",
                         "..%20", "%uff0e%uff0e", "..\\", "%2e%2e%5c"}) {
    for (const char* slash : {"/", "%2f", "%2F", "//", "/./", "%5c", "%252f", "%c0%af"}) {
      const std::string step = std::string(up) + slash;
      for (const std::string target : {"outside.jpg", "etc/passwd"}) {
        attempts.push_back(step + target);
        attempts.push_back("sub/" + step + step + target);
      }
    }
  }
  for (const std::string route : {"/", "//", "%2f", "file:///", "/proc/self/root/", "sub/link/", "link/", ".tavi_ea/",
                                  "%2etavi_ea/", "absolute/", "sub/absolute/", "ea/"}) {
    for (const char* target : {"etc/passwd", "outside.jpg", "root/outside.jpg", "x/outside.jpg"}) {
      attempts.push_back(route + target);
    }
  }
  return attempts;
}

class Roots : public testing::TestWithParam<Front> {};

INSTANTIATE_TEST_SUITE_P(Through, Roots,
                         testing::Values(Front::kNginxScgi, Front::kLighttpdScgi, Front::kNginxCgi, Front::kLighttpdCgi,
                                         Front::kNginxSendfile, Front::kLighttpdSendfile),
                         testing::PrintToStringParamName());

TEST_P(Roots, AreNotEscapedByAnyAddress) {
  const Site site(GetParam());
  MakeSecret(site / "../outside.jpg");
  fs::create_directories(site / "sub");
  fs::create_directories(site / ".tavi_ea/x");
  MakeSecret(site / ".tavi_ea/x/outside.jpg");
  fs::create_symlink("..", site / "link");
  fs::create_symlink("../..", site / "sub/link");
  fs::create_symlink("/", site / "absolute");
  fs::create_symlink("/", site / "sub/absolute");
  fs::create_symlink(".tavi_ea", site / "ea");
  fs::create_symlink("../outside.jpg", site / "outside.jpg");

  std::size_t count = 0;
  for (const std::string& attempt : Attempts()) {
    for (const char* route : {"/thumb/", "/original/", "/list/"}) {
      const std::string query = std::string(route) == "/thumb/" ? "?size=small" : "";
      SCOPED_TRACE(route + attempt + query);
      const Response response = site.Get(route + attempt + query);
      EXPECT_GE(response.status, 400);
      EXPECT_LT(response.status, 500);
      EXPECT_FALSE(IsSecret(response.body));
      ++count;
    }
  }
  EXPECT_GE(count, 500U);
  EXPECT_EQ(site.Noted("run: "), std::vector<std::string>{});
}

// Repeats `swap` while it lives.
class Swapping {
 public:
  explicit Swapping(const std::function<void()>& swap)
      : thread_([this, swap] {
          while (!ends_) swap();
        }) {}
  ~Swapping() {
    ends_ = true;
    thread_.join();
  }
  Swapping(const Swapping&) = delete;
  Swapping& operator=(const Swapping&) = delete;

 private:
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

// Requests `address` repeatedly while `swap` is repeated; counts the answers, and checks that none was secret.
std::size_t AskWhile(const Site& site, const std::string& address, const std::function<void()>& swap) {
  const Swapping swapping(swap);
  std::size_t answered = 0;
  for (int i = 0; i < 400; ++i) {
    const Response response = site.Get(address);
    EXPECT_FALSE(IsSecret(response.body)) << i;
    answered += response.status == 200 ? 1 : 0;
  }
  return answered;
}

bool KnowsLandlock() {
  return syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) > 0;
}

TEST(RootsWithLinks, ShowNothingFromOutsideWhileALinkIsSwappedBackAndForth) {
  const Site site(Front::kNginxScgi);
  const Outside outside;
  if (!outside.IsThere()) GTEST_SKIP() << kNeedsOutside;
  MakeSecret(outside / "photo.jpg");
  fs::create_directories(site / "inside");
  MakeJpeg(site / "inside/photo.jpg", 20, 10);
  const std::size_t answered = AskWhile(site, "/original/link/photo.jpg", [&] {
    for (const std::string& target : {std::string("inside"), outside / ""}) {
      fs::create_symlink(target, site / "next");
      fs::rename(site / "next", site / "link");
    }
  });
  EXPECT_GT(answered, 0U);
}

// The looked-up name itself is swapped: then only the system can keep the library inside.
class RootsWithFolders : public testing::TestWithParam<Front> {
 protected:
  void SetUp() override {
    if (!KnowsLandlock()) GTEST_SKIP() << "this system knows no Landlock";
    if (!outside_.IsThere()) GTEST_SKIP() << kNeedsOutside;
    fs::create_directories(site_ / "folder");
    fs::create_symlink(outside_ / "", site_ / "link");
  }
  void Swap() const {
    renameat2(AT_FDCWD, (site_ / "folder").c_str(), AT_FDCWD, (site_ / "link").c_str(), RENAME_EXCHANGE);
  }

  const Site site_{GetParam()};
  const Outside outside_;
};

INSTANTIATE_TEST_SUITE_P(Through, RootsWithFolders, testing::Values(Front::kNginxScgi, Front::kNginxSendfile),
                         testing::PrintToStringParamName());

TEST_P(RootsWithFolders, ShowNothingFromOutsideWhileOneIsSwappedForALink) {
  MakeSecret(outside_ / "photo.jpg");
  MakeJpeg(site_ / "folder/photo.jpg", 20, 10);
  EXPECT_GT(AskWhile(site_, "/original/folder/photo.jpg", [this] { Swap(); }), 0U);
}

// The tools look up the name once more.
TEST_P(RootsWithFolders, MakeNoThumbnailOfAFileOutsideWhileOneIsSwappedForALink) {
  RunTool({"/usr/bin/convert", "-size", "400x300", "xc:red", outside_ / "photo.tif"});
  RunTool({"/usr/bin/convert", "-size", "400x300", "xc:blue", site_ / "folder/photo.tif"});
  const auto expectFromInside = [](const Response& response) {
    TempDir folder;
    WriteFile(folder / "answer", response.body);
    EXPECT_EQ(RunTool({"/usr/bin/convert", folder / "answer", "-format", "%[fx:mean.r<mean.b]", "info:"}), "1");
  };
  {
    useconds_t pause = 0;
    const Swapping swapping([this, &pause] {
      Swap();
      usleep(pause++ % 40 * 1000);
    });
    for (int side = 10; side < 160; ++side) {
      const Response response = site_.Get("/thumb/folder/photo.tif?size=" + std::to_string(side));
      if (response.status == 200) expectFromInside(response);
    }
  }
  if (fs::is_symlink(site_ / "folder")) Swap();
  expectFromInside(site_.Get("/thumb/folder/photo.tif?size=160"));
  EXPECT_EQ(Names(outside_ / ""), std::vector<std::string>{"photo.tif"}) << "nothing is written there either";
}

TEST(RootsWithLinks, ShowTheTargetOfALinkInside) {
  const Site site(Front::kNginxScgi);
  fs::create_directories(site / "inside");
  MakeJpeg(site / "inside/photo.jpg", 20, 10);
  fs::create_symlink("inside", site / "link");
  fs::create_symlink("../inside/photo.jpg", site / "inside/again.jpg");
  for (const char* address : {"/original/link/photo.jpg", "/original/inside/again.jpg"}) {
    SCOPED_TRACE(address);
    EXPECT_TRUE(site.Get(address).body == ReadFile(site / "inside/photo.jpg"));
  }
}

TEST(RootsWithNames, AreTheStartOfTheAddresses) {
  TempDir films, photos;
  chmod(films.Path().c_str(), 0755);
  chmod(photos.Path().c_str(), 0755);
  MakePng(films / "still.png", 20, 10);
  MakePng(photos / "photo.png", 20, 10);
  SiteOptions options;
  options.roots = {"photos=" + photos.Path(), "films & more=" + films.Path()};
  options.prefix = "/gallery";
  const Site site(Front::kNginxScgi, options);
  EXPECT_EQ(site.Get("/list/").body,
            R"({"path":"","folders":[{"name":"films & more","url":"films%20%26%20more","photos":1,)"
            R"("cover":"films%20%26%20more/still.png"},)"
            R"({"name":"photos","url":"photos","photos":1,"cover":"photos/photo.png"}],"files":[],"unreadable":0})"
            "\n");
  EXPECT_TRUE(site.Get("/original/films%20%26%20more/still.png").body == ReadFile(films / "still.png"));
  EXPECT_TRUE(site.Get("/original/photos/photo.png").body == ReadFile(photos / "photo.png"));
  EXPECT_EQ(site.Get("/original/photos/still.png").status, 404);
  EXPECT_EQ(site.Get("/original/still.png").status, 404);
  EXPECT_EQ(site.Get("/thumb/photos?size=small").status, 404);
  const std::string page = site.Get("/list/photos", {"Accept: text/html"}).body;
  EXPECT_NE(page.find("<a class=\"tile\" href=\"/gallery/original/photos/photo.png\">"), page.npos) << page;
}

TEST(RootsWithHiddenNames, ShowThemIfConfigured) {
  for (const bool isShown : {false, true}) {
    SiteOptions options;
    if (isShown) options.program = {"--hidden"};
    const Site site(Front::kNginxScgi, options);
    fs::create_directories(site / ".private");
    MakePng(site / ".private/.photo.png", 20, 10);
    fs::create_directories(site / ".tavi_ea/x");
    MakePng(site / ".tavi_ea/x/photo.png", 20, 10);
    EXPECT_EQ(site.Get("/original/.private/.photo.png").status, isShown ? 200 : 404);
    EXPECT_EQ(site.Get("/list/").body.find(".private") != std::string::npos, isShown);
    EXPECT_EQ(site.Get("/list/").body.find(".tavi_ea"), std::string::npos);
    EXPECT_EQ(site.Get("/original/.tavi_ea/x/photo.png").status, 404);
  }
}

}  // namespace
}  // namespace tavithumb::test
