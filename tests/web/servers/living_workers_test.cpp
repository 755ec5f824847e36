// SPDX-License-Identifier: GPL-3.0-or-later
// Workers that answer one request after the other: when they are replaced, that nothing of one request gets into the
// next, and that those which only send leave the others free.
#include <gtest/gtest.h>
#include <pictures.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <random>
#include <thread>

#include "children.h"
#include "site.h"

namespace tavithumb::test {
namespace {

using Variables = std::vector<std::pair<std::string, std::string>>;

Variables AskingFor(const std::string& address, const Variables& more = {}) {
  Variables variables = {{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", address}, {"SCRIPT_NAME", ""}};
  for (const auto& [name, value] : more) {
    if (name == "REQUEST_METHOD") variables.front().second = value;
    if (name != "REQUEST_METHOD") variables.emplace_back(name, value);
  }
  return variables;
}

SiteOptions OneWorker() {
  SiteOptions options;
  options.program = {"--children", "1"};
  return options;
}

// The only worker, once it has nothing to do.
std::vector<pid_t> WorkersOfIdle(const Site& site) {
  AwaitIdleWorkers(site);
  return ChildrenOf(site);
}

TEST(LivingWorkers, AnswerAThousandRequestsAndAreReplaced) {
  const Site site(Front::kNone, OneWorker());
  site.Scgi(AskingFor("/list/"));
  const std::vector<pid_t> first = WorkersOfIdle(site);
  ASSERT_EQ(first.size(), 1U);
  std::size_t answered = 1;
  for (; answered < 1100 && WorkersOfIdle(site) == first; ++answered) site.Scgi(AskingFor("/list/"));
  EXPECT_GE(answered, 1000U);
  EXPECT_LE(answered, 1001U) << "its successor may answer one while it is exiting";
}

struct Lifetime {
  const char* what;
  const char* address;
  bool isReplaced;
};

TEST(LivingWorkers, AreReplacedOnceTheyHaveDecodedAFile) {
  const Site site(Front::kNone, OneWorker());
  MakeJpeg(site / "small.jpg", 40, 30);
  MakeTiff(site / "scan.tif", 800, 600);
  MakeJpeg(site / "photo.jpg", 800, 600);
  WriteFile(site / "damaged.jpg", ReadFile(site / "photo.jpg").substr(0, 100));
  const std::vector<Lifetime> rows = {
      {"lists", "/list/", false},
      {"original", "/original/photo.jpg", false},
      {"error", "/thumb/missing.jpg?size=small", false},
      {"malformed", "/thumb/photo.jpg?size=none", false},
      {"made", "/thumb/photo.jpg?size=small", true},
      {"stored", "/thumb/photo.jpg?size=small", false},
      {"made by a tool", "/thumb/scan.tif?size=50x50", true},
      {"damaged", "/thumb/damaged.jpg?size=small", true},
  };
  for (const Lifetime& row : rows) {
    site.Scgi(AskingFor("/list/"));
    const std::vector<pid_t> before = WorkersOfIdle(site);
    site.Scgi(AskingFor(row.address));
    site.Scgi(AskingFor("/list/"));
    EXPECT_EQ(WorkersOfIdle(site) != before, row.isReplaced) << row.what;
  }
}

// The pipe and the child of the rotation last as long as the process.
TEST(LivingWorkers, AreReplacedOnceTheyHaveLeftSomethingBehind) {
  const Site site(Front::kNone, OneWorker());
  MakeJpeg(site / "photo.jpg", 800, 600);
  std::filesystem::create_directories(site / ".tavi_ea/photo.jpg");
  MakeJpeg(site / ".tavi_ea/photo.jpg/TAVIPHOTO_THUMB_S.jpg", 120, 90);
  SetTimes(site / ".tavi_ea/photo.jpg/TAVIPHOTO_THUMB_S.jpg", 0, ModificationTime(site / "photo.jpg"));
  site.Scgi(AskingFor("/list/"));
  const std::vector<pid_t> before = WorkersOfIdle(site);
  EXPECT_NE(site.Scgi(AskingFor("/thumb/photo.jpg?size=small&rotate=1")).find("Content-Type: image/jpeg"),
            std::string::npos);
  site.Scgi(AskingFor("/list/"));
  EXPECT_NE(WorkersOfIdle(site), before);
}

// Fills the folder so that every kind of answer can be requested.
void FillForAnswers(const Site& site) {
  MakeJpeg(site / "photo.jpg", 800, 600);
  MakeJpeg(site / "small.jpg", 40, 30);
  MakePng(site / "drawing.png", 300, 200);
  MakeTiff(site / "scan.tif", 800, 600);
  WriteFile(site / "film.mp4", "a film");
  std::filesystem::create_directories(site / ".tavi_ea/film.mp4");
  MakeJpeg(site / ".tavi_ea/film.mp4/TAVIVIDEO_VIDEO_SCREENSHOT.jpg", 120, 90);
  WriteFile(site / "notes.txt", "no photo");
  std::filesystem::create_directory(site / "folder");
  MakeJpeg(site / "folder/inside.jpg", 500, 400);
  std::filesystem::resize_file(site / "drawing.png", 300000);  // is still being sent when the next request comes
}

std::vector<Variables> MixedRequests(const std::string& etag) {
  std::vector<Variables> requests;
  for (const char* address : {"/list/",
                              "/list/folder",
                              "/list/missing",
                              "/thumb/photo.jpg?size=small",
                              "/thumb/photo.jpg?size=medium",
                              "/thumb/photo.jpg?size=small&rotate=1",
                              "/thumb/photo.jpg?size=small&avatar=1",
                              "/thumb/drawing.png?size=small",
                              "/thumb/scan.tif?size=small",
                              "/thumb/small.jpg?size=large",
                              "/thumb/film.mp4?size=small",
                              "/thumb/notes.txt?size=small",
                              "/thumb/missing.jpg?size=small",
                              "/thumb/photo.jpg?size=huge",
                              "/thumb/../photo.jpg?size=small",
                              "/original/photo.jpg",
                              "/original/drawing.png",
                              "/original/scan.tif",
                              "/original/folder",
                              "/nothing/here",
                              "/thumb/folder/inside.jpg?size=small",
                              "/thumb/photo.jpg?size=original"}) {
    requests.push_back(AskingFor(address));
    requests.push_back(AskingFor(address, {{"REQUEST_METHOD", "HEAD"}}));
  }
  const char* const stored = "/thumb/photo.jpg?size=small";
  requests.push_back(AskingFor("/list/", {{"HTTP_ACCEPT", "text/html"}}));
  requests.push_back(AskingFor(stored, {{"HTTP_RANGE", "bytes=10-19"}}));
  requests.push_back(AskingFor(stored, {{"HTTP_RANGE", "bytes=99999999-"}}));
  requests.push_back(AskingFor(stored, {{"HTTP_IF_NONE_MATCH", etag}}));
  requests.push_back(AskingFor(stored, {{"HTTP_IF_MATCH", "\"another\""}}));
  requests.push_back(AskingFor(stored, {{"REQUEST_METHOD", "POST"}}));
  requests.push_back(AskingFor("/original/photo.jpg", {{"HTTP_RANGE", "bytes=0-0,5-9"}}));
  return requests;
}

TEST(LivingWorkers, AnswerTenThousandMixedRequestsLikeFreshOnes) {
  const Site living(Front::kNone, OneWorker());
  FillForAnswers(living);
  const std::string etag = [&] {
    const std::string answer = living.Scgi(AskingFor("/thumb/photo.jpg?size=small"));
    const std::size_t start = answer.find("ETag: ") + 6;
    return answer.substr(start, answer.find("\r\n", start) - start);
  }();
  const std::vector<Variables> requests = MixedRequests(etag);
  for (const Variables& request : requests) living.Scgi(request);  // makes what is not stored
  std::vector<std::string> expected;
  for (const Variables& request : requests) {
    SiteOptions options = OneWorker();
    options.roots = {living.Photos()};
    expected.push_back(Site(Front::kNone, options).Scgi(request));
  }
  std::mt19937 random(7);
  std::size_t different = 0;
  for (int i = 0; i < 10000; ++i) {
    const std::size_t which = random() % requests.size();
    const std::string answer = living.Scgi(requests[which]);
    if (answer == expected[which]) continue;
    ++different;
    ADD_FAILURE() << requests[which][1].second << ":\n" << answer.substr(0, 400);
    if (different == 5) return;
  }
}

class SlowClients : public testing::TestWithParam<Front> {};

INSTANTIATE_TEST_SUITE_P(Of, SlowClients,
                         testing::Values(Front::kNginxScgi, Front::kLighttpdScgi, Front::kNginxCgi,
                                         Front::kLighttpdCgi),
                         testing::PrintToStringParamName());

// Connected, with a window of about 4 KB; it has asked for `address` and reads nothing.
int AskSlowly(const Site& site, const std::string& address) {
  const int connection = ConnectTo(site.Port(), 4096);
  const std::string request = "GET " + site.Prefix() + address + " HTTP/1.0\r\nHost: localhost\r\n\r\n";
  send(connection, request.data(), request.size(), MSG_NOSIGNAL);
  return connection;
}

// The deadline is over long before they have read anything.
TEST_P(SlowClients, LeaveTheOthersServedAndGetTheirFilesWhole) {
  SiteOptions options;
  options.program = {"--children", "2", "--waiting", "300", "--deadline", "20"};
  const Site site(GetParam(), options);
  MakeJpeg(site / "photo.jpg", 800, 600);
  MakeJpeg(site / "large.jpg", 400, 300);
  std::filesystem::resize_file(site / "large.jpg", 4000000);
  EXPECT_EQ(site.Get("/thumb/photo.jpg?size=small").status, 200);
  std::vector<int> slow;
  for (int i = 0; i < 200; ++i) slow.push_back(AskSlowly(site, "/original/large.jpg"));
  if (GetParam() == Front::kNginxScgi) {  // the only one of the four that does not store the answers itself
    for (int i = 0; i < 1000 && BusyChildrenOf(site).size() < slow.size(); ++i) usleep(10000);
    EXPECT_EQ(BusyChildrenOf(site).size(), slow.size());
  }

  std::array<int, 64> statuses = {};
  std::vector<std::thread> clients;
  for (int& status : statuses) clients.emplace_back([&] { status = site.Get("/thumb/photo.jpg?size=small").status; });
  for (std::thread& client : clients) client.join();
  for (const int status : statuses) EXPECT_EQ(status, 200);

  const std::string whole = ReadFile(site / "large.jpg");
  for (std::size_t i = 0; i < slow.size(); ++i) {
    const std::string response = i % 10 == 0 ? ReadAll(slow[i]) : "\r\n\r\n" + whole;
    EXPECT_TRUE(response.substr(response.find("\r\n\r\n") + 4) == whole) << response.substr(0, 200);
    close(slow[i]);
  }
}

TEST(SlowClient, GetsItsFileWholeAfterTheDeadline) {
  SiteOptions options;
  options.program = {"--children", "1", "--deadline", "1"};
  const Site site(Front::kNginxScgi, options);
  MakeJpeg(site / "large.jpg", 400, 300);
  std::filesystem::resize_file(site / "large.jpg", 14000000);
  const int connection = AskSlowly(site, "/original/large.jpg");
  usleep(1500000);
  const std::string response = ReadAll(connection);
  close(connection);
  EXPECT_TRUE(response.substr(response.find("\r\n\r\n") + 4) == ReadFile(site / "large.jpg"));
}

}  // namespace
}  // namespace tavithumb::test
