// SPDX-License-Identifier: GPL-3.0-or-later
// Missing permissions of the program are reported as such.
#include <gtest/gtest.h>
#include <pictures.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "site.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

constexpr uid_t kNobody = 65534;

class Rights : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = Site::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  }

  static SiteOptions AsNobody() {
    SiteOptions options;
    options.user = kNobody;
    return options;
  }

  static std::string Get(const Site& site, const std::string& address) {
    return site.Scgi({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", address}, {"SCRIPT_NAME", ""}});
  }

  static std::string Error(const std::string& status, const std::string& body) {
    return "Status: " + status +
           "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n" + body;
  }
};

TEST_F(Rights, OmitFoldersThatCannotBeReadAndCountThem) {
  const Site site(Front::kNone, AsNobody());
  const std::pair<const char*, mode_t> folders[] = {
      {"closed", 0700}, {"listable", 0744}, {"open", 0755}, {"passable", 0711}};
  for (const auto& [name, mode] : folders) {
    fs::create_directory(site / name);
    chmod((site / name).c_str(), mode);
  }
  fs::create_symlink("closed/inside", site / "link");
  const std::string list = Get(site, "/list/");
  EXPECT_EQ(list.substr(list.find("\r\n\r\n") + 4),
            "{\"path\":\"\",\"folders\":[{\"name\":\"open\",\"url\":\"open\",\"photos\":0}],\"files\":[],"
            "\"unreadable\":4,\"not_stored\":\"no thumbnail can be written next to it\"}\n");
  for (const char* name : {"closed", "passable"}) {
    EXPECT_EQ(Get(site, std::string("/list/") + name), Error("403 Forbidden", "permission denied\n")) << name;
  }
}

TEST_F(Rights, RejectAFileThatCannotBeRead) {
  const Site site(Front::kNone, AsNobody());
  MakePng(site / "drawing.png", 80, 60);
  chmod((site / "drawing.png").c_str(), 0600);
  fs::create_directory(site / "closed");
  MakePng(site / "closed/drawing.png", 80, 60);
  chmod((site / "closed").c_str(), 0700);
  for (const char* address :
       {"/thumb/drawing.png?size=small", "/original/drawing.png", "/original/closed/drawing.png"}) {
    EXPECT_EQ(Get(site, address), Error("403 Forbidden", "permission denied\n")) << address;
  }
}

TEST_F(Rights, ReportThatAThumbnailCannotBeStoredAndSendIt) {
  const Site site(Front::kNone, AsNobody());
  MakePng(site / "drawing.png", 800, 600);
  chmod((site / "drawing.png").c_str(), 0644);
  const std::vector<std::string> temporaries = TemporaryFiles();
  const std::string answer = Get(site, "/thumb/drawing.png?size=small");
  EXPECT_EQ(answer.substr(0, answer.find("Content-Length")),
            "X-Content-Type-Options: nosniff\r\nVary: Accept\r\n"
            "Tavithumb-Not-Stored: no thumbnail can be written next to it\r\n"
            "Cache-Control: private, max-age=300, must-revalidate\r\nContent-Type: image/png\r\n");
  EXPECT_NE(answer.find("\x89PNG"), std::string::npos);
  EXPECT_EQ(site.Noted("log: "),
            std::vector<std::string>{"GET /thumb/drawing.png?size=small: not stored: no thumbnail can be written next "
                                     "to it; make its folder writable, or work on a copy"});
  EXPECT_EQ(TemporaryFiles(), temporaries);
  EXPECT_NE(Get(site, "/original/drawing.png").find("Content-Type: image/png\r\n"), std::string::npos);
}

// It needs only another user's photos, and thumbnail folders of its own.
TEST_F(Rights, SufficeWithAThumbnailFolderOfItsOwn) {
  const Site site(Front::kNone, AsNobody());
  MakePng(site / "drawing.png", 800, 600);
  chmod((site / "drawing.png").c_str(), 0644);
  fs::create_directory(site / ".tavi_ea");
  ASSERT_EQ(chown((site / ".tavi_ea").c_str(), kNobody, kNobody), 0);
  EXPECT_NE(Get(site, "/thumb/drawing.png?size=small").find("Content-Type: image/png\r\n"), std::string::npos);
  EXPECT_EQ(Names(site / ".tavi_ea/drawing.png"), std::vector<std::string>{"TAVIFILE_THUMB_S.png"});
}

}  // namespace
}  // namespace tavithumb::test
