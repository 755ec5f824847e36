// SPDX-License-Identifier: GPL-3.0-or-later
// How the program handles many requests, slow ones and fatal ones.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pictures.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <thread>
#include <tuple>

#include "children.h"
#include "site.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSmall[] = "/thumb/scan.tif?size=small";

std::string Error(const std::string& status, const std::string& body, const std::string& more = "") {
  return "Status: " + status +
         "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n" + more + "\r\n" + body;
}

std::vector<std::pair<std::string, std::string>> GetOf(const std::string& address) {
  return {{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", address}, {"SCRIPT_NAME", ""}};
}

std::size_t EntriesIn(const std::string& folder) {
  std::error_code gone;
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder, gone), fs::directory_iterator()));
}

// Besides those to its workers.
std::size_t DescriptorsOf(const Site& site) {
  return EntriesIn("/proc/" + std::to_string(site.Program().Id()) + "/fd") - ChildrenOf(site).size();
}

bool IsAlive(const std::string& process) {
  return kill(std::stoi(process), 0) == 0 && ReadFile("/proc/" + process + "/stat").find(") Z") == std::string::npos;
}

// The existing folders of the tools' temporary files.
std::size_t ScratchFoldersOf(const Site& site) {
  const std::vector<std::string> given = site.Noted("scratch: ");
  EXPECT_FALSE(given.empty());
  return static_cast<std::size_t>(std::count_if(given.begin(), given.end(), Exists));
}

SiteOptions WithTool(const std::string& tool, const std::vector<std::string>& program = {}) {
  SiteOptions options;
  options.environment = {"PROBE_TOOL=" + tool};
  options.program = program;
  options.program.emplace_back("--library");
  return options;
}

class WorkersBehind : public testing::TestWithParam<Front> {};

INSTANTIATE_TEST_SUITE_P(Servers, WorkersBehind,
                         testing::Values(Front::kNginxScgi, Front::kLighttpdScgi, Front::kNginxCgi,
                                         Front::kLighttpdCgi),
                         testing::PrintToStringParamName());

// A JPEG's tool is djpeg, a TIFF's convert.
class WorkersOf : public testing::TestWithParam<std::tuple<Front, std::pair<std::string, std::string>>> {};

std::string NameOf(const testing::TestParamInfo<WorkersOf::ParamType>& instance) {
  const auto& [front, kind] = instance.param;
  return testing::PrintToString(front) + (kind.first == "photo.jpg" ? "Photo" : "Scan");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, WorkersOf,
    testing::Combine(testing::Values(Front::kNginxScgi, Front::kLighttpdScgi, Front::kNginxCgi, Front::kLighttpdCgi),
                     testing::Values(std::pair<std::string, std::string>("photo.jpg", "/usr/bin/djpeg"),
                                     std::pair<std::string, std::string>("scan.tif", "/usr/bin/convert"))),
    NameOf);

TEST_P(WorkersOf, OneSourceRunTheToolOnceFor64Clients) {
  const auto& [front, kind] = GetParam();
  const auto& [name, tool] = kind;
  const Site site(front, WithTool("slow", {"--deadline", "250"}));
  RunTool({"/usr/bin/convert", "-size", "1600x1200", "-seed", "7", "plasma:", "+noise", "Gaussian", "-quality", "95",
           site / name});
  std::vector<Response> responses(64);
  std::vector<std::thread> clients;
  const std::string address = "/thumb/" + name + "?size=small";
  for (Response& response : responses) clients.emplace_back([&] { response = site.Get(address); });
  for (std::thread& client : clients) client.join();

  EXPECT_EQ(site.Noted("run: "), std::vector<std::string>{tool});
  const std::string stored = ReadFile(site / (".tavi_ea/" + name + "/TAVIFILE_THUMB_S.jpg"));
  for (const Response& response : responses) {
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.headers, responses.front().headers);
    EXPECT_TRUE(response.body == stored);
  }
}

// Its state while jpegtran writes a thumbnail of an embedded preview.
TEST(Workers, WaitForAPartiallyWrittenThumbnail) {
  const Site site(Front::kNone);
  MakeTiff(site / "scan.tif", 800, 600);
  MakeJpeg(site / "small.jpg", 120, 90);
  const std::string whole = ReadFile(site / "small.jpg"), entry = site / ".tavi_ea/scan.tif/TAVIFILE_THUMB_S.jpg";
  WriteFile(entry, whole.substr(0, 500));
  const int maker = open((site / "scan.tif").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(maker, LOCK_EX), 0);
  std::string response;
  std::thread client([&] { response = site.Scgi(GetOf(kSmall)); });
  usleep(200000);
  WriteFile(entry, whole);
  SetTimes(entry, 0, ModificationTime(site / "scan.tif"));
  close(maker);
  client.join();
  EXPECT_TRUE(response.substr(response.find("\r\n\r\n") + 4) == whole);
  EXPECT_EQ(site.Noted("run: "), std::vector<std::string>{});
}

TEST(Workers, MakeAllSizesOfASourceOneAfterTheOther) {
  const Site site(Front::kNone, WithTool("slow", {"--children", "8"}));
  MakeTiff(site / "scan.tif", 800, 600);
  std::vector<std::thread> clients;
  for (const char* size : {"small", "medium", "big", "large"}) {
    clients.emplace_back([&site, size] {
      const std::string response = site.Scgi(GetOf(std::string("/thumb/scan.tif?size=") + size));
      EXPECT_EQ(response.rfind("X-Content-Type-Options: nosniff\r\n", 0), 0U) << response;
    });
  }
  for (std::thread& client : clients) client.join();
  for (const std::string& entry : Names(site / ".tavi_ea/scan.tif")) {
    EXPECT_EQ(Identify(site / (".tavi_ea/scan.tif/" + entry)).format, "JPEG") << entry;
  }
  EXPECT_EQ(Names(site / ".tavi_ea/scan.tif").size(), 4U);
}

TEST(Workers, KillAToolThatHangsAndIgnoresTerm) {
  const Site site(Front::kNone, WithTool("hang", {"--deadline", "1"}));
  MakeTiff(site / "scan.tif", 800, 600);
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(site.Scgi(GetOf(kSmall)), Error("504 Gateway Timeout", "the request took too long\n"));
  AwaitIdleWorkers(site);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(3)) << "later than the deadline and two seconds";

  const std::vector<std::string> noted = site.Noted("run: ");
  ASSERT_EQ(noted.size(), 2U);
  EXPECT_FALSE(IsAlive(noted[1]));
  EXPECT_EQ(ScratchFoldersOf(site), 0U);
  EXPECT_EQ(site.Noted("log: "),
            std::vector<std::string>{"GET /thumb/scan.tif?size=small: 504 the request took too long"});
}

TEST_P(WorkersBehind, AWebServerKillAToolThatHangsAndIgnoresTerm) {
  const Site site(GetParam(), WithTool("hang", {"--deadline", "1"}));
  MakeTiff(site / "scan.tif", 800, 600);
  const Response response = site.Get(kSmall);
  EXPECT_EQ(response.status, 504);
  EXPECT_EQ(response.body, "the request took too long\n");
  const std::vector<std::string> noted = site.Noted("run: ");
  ASSERT_EQ(noted.size(), 2U);
  for (int i = 0; i < 6000 && IsAlive(noted[1]); ++i) usleep(10000);
  EXPECT_FALSE(IsAlive(noted[1]));
}

// How many answers of each status 25 clients get to 1,000 requests.
std::map<int, std::size_t> StatusesOfAThousand(const Site& site) {
  std::array<std::map<int, std::size_t>, 25> counts;
  std::vector<std::thread> clients;
  for (std::map<int, std::size_t>& count : counts) {
    clients.emplace_back([&] {
      for (int i = 0; i < 40; ++i) ++count[site.Get(kSmall).status];
    });
  }
  for (std::thread& client : clients) client.join();
  std::map<int, std::size_t> sum;
  for (const std::map<int, std::size_t>& count : counts) {
    for (const auto& [status, answers] : count) sum[status] += answers;
  }
  return sum;
}

TEST(Workers, AnswerOrRejectEachOfAThousandRequestsUnderLoad) {
  for (const Front front : {Front::kNginxScgi, Front::kLighttpdScgi}) {
    const Site site(front, WithTool("", {"--children", "1", "--waiting", "2"}));
    MakeTiff(site / "scan.tif", 800, 600);
    std::map<int, std::size_t> answers = StatusesOfAThousand(site);
    EXPECT_GT(answers[200], 0U);
    EXPECT_EQ(answers[200] + answers[503], 1000U)
        << testing::PrintToString(front) << " " << testing::PrintToString(answers);
  }
}

TEST(Workers, AreReplacedByTheirParentAfterACrash) {
  const Site site(Front::kNone, WithTool("crash"));
  MakeTiff(site / "scan.tif", 800, 600);
  MakePng(site / "drawing.png", 80, 60);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(site.Scgi(GetOf(kSmall)),
              Error("503 Service Unavailable", "the process answering the request died\n", "Retry-After: 1\r\n"));
  }
  EXPECT_NE(site.Scgi(GetOf("/original/drawing.png")).find("Content-Type: image/png\r\n"), std::string::npos);
  EXPECT_EQ(site.Noted("log: ").front(), "GET /thumb/scan.tif?size=small: 503 the process answering the request died");
}

TEST(Workers, KillTheToolsOfOneThatWasKilled) {
  const Site site(Front::kNone, WithTool("hang"));
  MakeTiff(site / "scan.tif", 800, 600);
  std::string response;
  std::thread client([&] { response = site.Scgi(GetOf(kSmall)); });
  while (site.Noted("run: ").size() < 2) usleep(1000);
  const std::string tool = site.Noted("run: ")[1], status = ReadFile("/proc/" + tool + "/status");
  const int worker = std::stoi(status.substr(status.find("PPid:") + 5));
  ASSERT_NE(worker, site.Program().Id());
  kill(worker, SIGKILL);
  client.join();
  EXPECT_EQ(response,
            Error("503 Service Unavailable", "the process answering the request died\n", "Retry-After: 1\r\n"));
  AwaitIdleWorkers(site);
  for (int i = 0; i < 500 && IsAlive(tool); ++i) usleep(10000);
  EXPECT_FALSE(IsAlive(tool));
}

// Requests that reach the program all at once, in order.
std::vector<std::string> AskAtOnce(const Site& site, std::size_t count) {
  std::vector<int> connections;
  const std::string request = ScgiRequest(GetOf(kSmall));
  site.Program().Signal(SIGSTOP);
  while (connections.size() < count) {
    connections.push_back(site.ConnectScgi());
    send(connections.back(), request.data(), request.size(), MSG_NOSIGNAL);
  }
  site.Program().Signal(SIGCONT);
  std::vector<std::string> responses;
  for (const int connection : connections) {
    responses.push_back(ReadAll(connection));
    close(connection);
  }
  return responses;
}

TEST(Workers, RejectRequestsOverTheLimitOrAfterTooLongAWait) {
  const Site site(Front::kNone, WithTool("hang", {"--deadline", "2", "--children", "1", "--waiting", "2"}));
  MakeTiff(site / "scan.tif", 800, 600);
  const std::string late = Error("504 Gateway Timeout", "the request took too long\n"), more = "Retry-After: 1\r\n";
  const std::string waited = Error("503 Service Unavailable", "the request waited too long\n", more);
  const std::string busy = Error("503 Service Unavailable", "too many requests are waiting\n", more);
  EXPECT_EQ(AskAtOnce(site, 5), (std::vector<std::string>{late, waited, waited, busy, busy}));
}

void Send(int connection, const std::string& address) {
  const std::string request = ScgiRequest(GetOf(address));
  EXPECT_EQ(send(connection, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
}

TEST(Workers, ThatDieWhileTheyAnswerGetNoSecondAnswer) {
  const Site site(Front::kNone);
  MakePng(site / "drawing.png", 80, 60);
  fs::resize_file(site / "drawing.png", 8000000);  // does not fit in a socket
  const int connection = site.ConnectScgi();
  Send(connection, "/thumb/drawing.png?size=original");
  for (int waiting = 0; waiting == 0; usleep(1000)) ioctl(connection, FIONREAD, &waiting);
  kill(BusyChildrenOf(site).front(), SIGKILL);
  const std::string response = ReadAll(connection);
  EXPECT_NE(response.find("Content-Length: 8000000\r\n"), std::string::npos);
  EXPECT_EQ(response.find("Status:"), std::string::npos);
  AwaitIdleWorkers(site);
  EXPECT_EQ(site.Noted("log: "), std::vector<std::string>{});
  close(connection);
}

// A web server that is still sending its request takes a closed connection for a failure, and reads no answer.
TEST(Workers, ReadTheRequestsThatAreRejected) {
  const Site site(Front::kNone, WithTool("", {"--children", "1", "--waiting", "0"}));
  const int busy = site.ConnectScgi(), refused = site.ConnectScgi();
  EXPECT_EQ(ReadAll(refused),
            Error("503 Service Unavailable", "too many requests are waiting\n", "Retry-After: 1\r\n"));
  Send(refused, kSmall);
  close(refused);
  close(busy);
}

TEST(Workers, SurviveAThousandClientsThatDisconnect) {
  const Site site(Front::kNginxScgi, WithTool(""));
  const Site& small = site;
  MakeTiff(small / "scan.tif", 800, 600);
  RunTool({"/usr/bin/convert", "-size", "2000x1500", "-seed", "7", "plasma:", "+noise", "Gaussian",
           "png:" + (site / "large.png")});
  EXPECT_EQ(site.Get(kSmall).status, 200);
  AwaitIdleWorkers(site);
  const std::size_t descriptors = DescriptorsOf(site);
  for (int i = 0; i < 1000; ++i) {
    const int connection = ConnectTo(site.Port());
    const std::string address =
        i % 3 == 0 ? "/original/large.png" : "/thumb/scan.tif?size=" + std::to_string(50 + i % 40);
    const std::string request = "GET " + address + " HTTP/1.0\r\nHost: localhost\r\n\r\n";
    send(connection, request.data(), request.size(), MSG_NOSIGNAL);
    if (i % 2 == 0) usleep(static_cast<useconds_t>(i % 7) * 1000);
    const linger reset = {1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close(connection);
  }
  AwaitIdleWorkers(site);  // those that have gone may still wait for their turn
  EXPECT_EQ(site.Get(kSmall).status, 200);
  AwaitIdleWorkers(site);
  // Rejected connections are kept open for a while.
  for (int i = 0; i < 6000 && DescriptorsOf(site) > descriptors; ++i) usleep(10000);
  EXPECT_EQ(BusyChildrenOf(site), std::vector<pid_t>{});
  EXPECT_LE(DescriptorsOf(site), descriptors);
  EXPECT_EQ(ScratchFoldersOf(site), 0U);
}

TEST(Workers, StopAtTheirDeadlineWithoutARequest) {
  const Site site(Front::kNone, WithTool("", {"--deadline", "1"}));
  const int connection = site.ConnectScgi();
  EXPECT_EQ(ReadAll(connection), Error("504 Gateway Timeout", "the request took too long\n"));
  EXPECT_EQ(site.Noted("log: "), std::vector<std::string>{"a request: 504 the request took too long"});
  close(connection);
}

TEST(Workers, StopAtTheirDeadlineWhenARequestArrivesTooSlowly) {
  const Site site(Front::kNone, WithTool("", {"--deadline", "1"}));
  const int connection = site.ConnectScgi();
  std::thread client([connection] {
    for (const char byte : ScgiRequest(GetOf(kSmall)) + std::string(1000, ' ')) {
      if (send(connection, &byte, 1, MSG_NOSIGNAL) != 1) return;
      usleep(50000);
    }
  });
  EXPECT_EQ(ReadAll(connection), Error("504 Gateway Timeout", "the request took too long\n"));
  shutdown(connection, SHUT_RDWR);
  client.join();
  close(connection);
}

TEST(Workers, RejectRequestsThatAreNotScgi) {
  const Site site(Front::kNone);
  for (const std::string request : {"GET / HTTP/1.0\r\n\r\n", "5:hello,", "99999:", "x"}) {
    SCOPED_TRACE(request);
    const int connection = site.ConnectScgi();
    send(connection, request.data(), request.size(), MSG_NOSIGNAL);
    shutdown(connection, SHUT_WR);
    EXPECT_EQ(ReadAll(connection).rfind("Status: 400 Bad Request\r\n", 0), 0U);
    close(connection);
  }
}

TEST(Workers, FinishStartedAnswersWhenTheServiceStops) {
  const Site site(Front::kNone, WithTool("slow", {"--children", "1"}));
  MakeTiff(site / "scan.tif", 800, 600);
  std::string begun, waiting;
  std::thread first([&] { begun = site.Scgi(GetOf(kSmall)); });
  while (site.Noted("run: ").empty()) usleep(1000);
  std::thread second([&] { waiting = site.Scgi(GetOf(kSmall)); });
  usleep(50000);
  site.Program().Signal(SIGTERM);
  first.join();
  second.join();
  EXPECT_NE(begun.find("Content-Type: image/jpeg\r\n"), std::string::npos) << begun;
  EXPECT_EQ(waiting, Error("503 Service Unavailable", "the service is stopping\n", "Retry-After: 1\r\n"));
  EXPECT_EQ(site.Program().Wait(), 0);
  EXPECT_FALSE(Exists(site.Socket()));
  EXPECT_EQ(ScratchFoldersOf(site), 0U);
}

TEST(Workers, AreKilledByASecondSignal) {
  const Site site(Front::kNone, WithTool("hang"));
  MakeTiff(site / "scan.tif", 800, 600);
  std::string response;
  std::thread client([&] { response = site.Scgi(GetOf(kSmall)); });
  while (site.Noted("run: ").size() < 2) usleep(1000);
  site.Program().Signal(SIGTERM);
  usleep(50000);
  site.Program().Signal(SIGTERM);
  client.join();
  EXPECT_EQ(response, Error("503 Service Unavailable", "the service is stopping\n", "Retry-After: 1\r\n"));
  EXPECT_EQ(site.Program().Wait(), 0);
  EXPECT_FALSE(IsAlive(site.Noted("run: ")[1]));
}

TEST(Workers, GiveToolsTheirOwnLimitsAndEnvironment) {
  if (std::string(TOOL_MEMORY) == "0") GTEST_SKIP() << "a sanitizer takes more address space than any limit";
  TempDir policy;
  WriteFile(policy / "policy.xml", ReadFile(std::string(POLICY_FOLDER) + "/policy.xml"));
  SiteOptions options = WithTool("surroundings", {"--tool-cpu", "7", "--tool-memory", "900", "--tool-file-size", "50",
                                                  "--tool-files", "64", "--policy", policy.Path()});
  options.environment.push_back("SECRET=of the service");
  const Site site(Front::kNone, options);
  MakeTiff(site / "scan.tif", 800, 600);
  std::vector<std::pair<std::string, std::string>> request = GetOf(kSmall);
  request.emplace_back("HTTP_PROXY", "http://elsewhere");
  request.emplace_back("HTTP_IF_NONE_MATCH", "\"tag\"");
  EXPECT_NE(site.Scgi(request).find("Content-Type: image/jpeg\r\n"), std::string::npos);

  EXPECT_EQ(site.Noted("cpu "), std::vector<std::string>{"7"});
  EXPECT_EQ(site.Noted("memory "), std::vector<std::string>{std::to_string(900 * 1048576)});
  EXPECT_EQ(site.Noted("file "), std::vector<std::string>{std::to_string(50 * 1048576)});
  EXPECT_EQ(site.Noted("files "), std::vector<std::string>{"64"});
  EXPECT_EQ(site.Noted("core "), std::vector<std::string>{"0"});
  EXPECT_EQ(site.Noted("PATH="), std::vector<std::string>{"/usr/bin:/bin"});
  EXPECT_EQ(site.Noted("MAGICK_CONFIGURE_PATH="), std::vector<std::string>{policy.Path()});
  EXPECT_EQ(site.Noted("MAGICK_TIME_LIMIT="), std::vector<std::string>{"7"});
  EXPECT_EQ(site.Noted("HTTP_IF_NONE_MATCH="), std::vector<std::string>{"\"tag\""});
  EXPECT_EQ(site.Noted("scratch "), std::vector<std::string>{"exists"});
  EXPECT_EQ(site.Noted("SECRET="), std::vector<std::string>{});
  EXPECT_EQ(site.Noted("HTTP_PROXY="), std::vector<std::string>{});
  const std::string scratch = site.Noted("MAGICK_TEMPORARY_PATH=").at(0);
  EXPECT_EQ(site.Noted("TMPDIR="), std::vector<std::string>{scratch});
  AwaitIdleWorkers(site);
  EXPECT_FALSE(Exists(scratch)) << "removed afterwards";
}

}  // namespace
}  // namespace tavithumb::test
