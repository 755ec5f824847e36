// SPDX-License-Identifier: GPL-3.0-or-later
// Files that the web server sends itself, because the program asks it to.
#include <gtest/gtest.h>
#include <pictures.h>
#include <unistd.h>

#include <filesystem>

#include "site.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

class SentByTheServer : public testing::TestWithParam<Front> {};

INSTANTIATE_TEST_SUITE_P(Through, SentByTheServer, testing::Values(Front::kNginxSendfile, Front::kLighttpdSendfile),
                         testing::PrintToStringParamName());

void ExpectSent(const Response& response, const std::string& path, const std::string& type) {
  EXPECT_EQ(response.status, 200);
  EXPECT_TRUE(response.body == ReadFile(path)) << path;
  EXPECT_EQ(response.Header("content-type"), type);
  EXPECT_EQ(response.Header("content-length"), std::to_string(response.body.size()));
  EXPECT_EQ(response.Header("cache-control"), "private, max-age=300, must-revalidate");
  EXPECT_EQ(response.Header("x-content-type-options"), "nosniff");
  EXPECT_NE(response.Header("etag"), "");
  EXPECT_NE(response.Header("last-modified"), "");
  EXPECT_EQ(response.Header("x-sendfile") + response.Header("x-accel-redirect"), "");
}

TEST_P(SentByTheServer, AreThumbnailsAndOriginals) {
  const Site site(GetParam());
  MakeJpeg(site / "photo.jpg", 1600, 1200);
  fs::create_directory(site / "sub");
  MakePng(site / "sub/drawing.png", 800, 600);
  const Response thumbnail = site.Get("/thumb/photo.jpg?size=small");
  ExpectSent(thumbnail, site / ".tavi_ea/photo.jpg/TAVIFILE_THUMB_S.jpg", "image/jpeg");
  EXPECT_EQ(thumbnail.Header("vary"), "Accept");
  const Response stored = site.Get("/thumb/photo.jpg?size=small");
  EXPECT_EQ(stored.headers, thumbnail.headers);
  EXPECT_TRUE(stored.body == thumbnail.body);
  ExpectSent(site.Get("/thumb/sub/drawing.png?size=big"), site / "sub/.tavi_ea/drawing.png/TAVIFILE_THUMB_B.png",
             "image/png");
  ExpectSent(site.Get("/original/photo.jpg"), site / "photo.jpg", "image/jpeg");
  ExpectSent(site.Get("/original/sub/drawing.png"), site / "sub/drawing.png", "image/png");
  WriteFile(site / "film.mp4", "film");
  ExpectSent(site.Get("/original/film.mp4"), site / "film.mp4", "video/mp4");
  const Response download = site.Get("/original/film.mp4?download=1");
  ExpectSent(download, site / "film.mp4", "application/octet-stream");
  EXPECT_EQ(download.Header("content-disposition"), "attachment; filename=\"film.mp4\"; filename*=UTF-8''film.mp4");
}

TEST_P(SentByTheServer, AreSentInPartsOrNotAtAllAsTheClientAsks) {
  const Site site(GetParam());
  MakeJpeg(site / "photo.jpg", 400, 300);
  const std::string all = ReadFile(site / "photo.jpg");
  const Response part = Exchange(
      site.Port(), "GET /original/photo.jpg HTTP/1.1\r\nHost: a\r\nConnection: close\r\nRange: bytes=2-11\r\n\r\n");
  EXPECT_EQ(part.status, 206);
  EXPECT_EQ(part.body, all.substr(2, 10));
  EXPECT_EQ(part.Header("content-range"), "bytes 2-11/" + std::to_string(all.size()));
  const Response head = site.Ask("HEAD", "/original/photo.jpg");
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.body, "");
  EXPECT_EQ(head.Header("content-length"), std::to_string(all.size()));
  const Response again = site.Get("/original/photo.jpg", {"If-None-Match: " + head.Header("etag")});
  EXPECT_EQ(again.status, 304);
  EXPECT_EQ(again.body, "");
}

TEST_P(SentByTheServer, HaveNamesOfAnyBytes) {
  const Site site(GetParam());
  const std::pair<const char*, const char*> names[] = {{"a b.jpg", "a%20b.jpg"},
                                                       {"100%.jpg", "100%25.jpg"},
                                                       {"%2e%2e.jpg", "%252e%252e.jpg"},
                                                       {"what?#+&.jpg", "what%3F%23%2B%26.jpg"},
                                                       {"\"quoted\\.jpg", "%22quoted%5C.jpg"}};
  for (const auto& [name, address] : names) {
    MakeJpeg(site / name, 20, 10);
    SCOPED_TRACE(address);
    const Response response = site.Get(std::string("/original/") + address);
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(response.body == ReadFile(site / name));
  }
}

// The library rotates it while it sends it.
TEST_P(SentByTheServer, AreNotThumbnailsThatTheProgramRotates) {
  const Site site(GetParam());
  MakeJpeg(site / "photo.jpg", 1600, 1200);
  fs::create_directories(site / ".tavi_ea/photo.jpg");
  MakeJpeg(site / ".tavi_ea/photo.jpg/TAVIPHOTO_THUMB_M.jpg", 320, 240);
  const Response response = site.Get("/thumb/photo.jpg?size=medium&rotate=1");
  WriteFile(site / "answer", response.body);
  EXPECT_EQ(Identify(site / "answer").width, 240);
  EXPECT_EQ(response.Header("etag"), "");
}

// Addresses that lighttpd rejects.
TEST(Sendfile, WorksForNamesOfTwoLinesAndOfNoText) {
  const Site site(Front::kNginxSendfile);
  const std::pair<const char*, const char*> names[] = {{"two\r\nlines.jpg", "two%0D%0Alines.jpg"},
                                                       {"\xE4.jpg", "%E4.jpg"}};
  for (const auto& [name, address] : names) {
    MakeJpeg(site / name, 20, 10);
    EXPECT_TRUE(site.Get(std::string("/original/") + address).body == ReadFile(site / name)) << address;
  }
}

// It reads nothing for longer than a request may take; meanwhile, the only worker answers others.
TEST_P(SentByTheServer, ReachASlowClientWithoutAWorker) {
  SiteOptions options;
  options.program = {"--children", "1", "--deadline", "1"};
  const Site site(GetParam(), options);
  MakeJpeg(site / "photo.jpg", 400, 300);
  WriteFile(site / "large.jpg", ReadFile(site / "photo.jpg") + std::string(20000000, '\0'));
  const int connection = ConnectTo(site.Port());
  const std::string request = "GET /original/large.jpg HTTP/1.0\r\nHost: localhost\r\n\r\n";
  ASSERT_EQ(write(connection, request.data(), request.size()), static_cast<ssize_t>(request.size()));
  for (int i = 0; i < 15; ++i) {
    EXPECT_EQ(site.Get("/original/photo.jpg").status, 200);
    usleep(100000);
  }
  const std::string response = ReadAll(connection);
  close(connection);
  EXPECT_TRUE(response.substr(response.find("\r\n\r\n") + 4) == ReadFile(site / "large.jpg"));
}

TEST(Sendfile, IsRefusedUnlessTheServerAnnouncesTheSame) {
  SiteOptions options;
  options.program = {"--sendfile", "X-Sendfile"};
  const Site site(Front::kNone, options);
  MakeJpeg(site / "photo.jpg", 400, 300);
  const std::string reason = "the web server does not announce X-Sendfile\n";
  for (const char* announced : {"", "X-Accel-Redirect /files", "X-Sendfiles"}) {
    const std::string response = site.Scgi({{"REQUEST_METHOD", "GET"},
                                            {"REQUEST_URI", "/original/photo.jpg"},
                                            {"SCRIPT_NAME", ""},
                                            {"TAVITHUMB_SENDFILE", announced},
                                            {"HTTP_TAVITHUMB_SENDFILE", "X-Sendfile"}});
    EXPECT_EQ(response,
              "Status: 500 Internal Server Error\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " +
                  std::to_string(reason.size()) +
                  "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n" + reason)
        << announced;
  }
}

TEST(Sendfile, IsUsedOnlyIfTheConfigurationSaysSo) {
  const Site site(Front::kNone);
  MakeJpeg(site / "photo.jpg", 400, 300);
  const std::string response = site.Scgi({{"REQUEST_METHOD", "GET"},
                                          {"REQUEST_URI", "/original/photo.jpg"},
                                          {"SCRIPT_NAME", ""},
                                          {"TAVITHUMB_SENDFILE", "X-Sendfile"}});
  EXPECT_EQ(response.find("X-Sendfile"), response.npos);
  EXPECT_TRUE(response.substr(response.find("\r\n\r\n") + 4) == ReadFile(site / "photo.jpg"));
}

// An address that only the web server itself may use.
TEST(Sendfile, OpensNoAddressToClients) {
  const Site site(Front::kNginxSendfile);
  MakeJpeg(site / "photo.jpg", 400, 300);
  EXPECT_EQ(site.Get("/files/photo.jpg").status, 404);
}

}  // namespace
}  // namespace tavithumb::test
