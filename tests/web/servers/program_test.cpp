// SPDX-License-Identifier: GPL-3.0-or-later
// How the program is started.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <pictures.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

#include "site.h"

namespace tavithumb::test {
namespace {

struct Outcome {
  int code;
  std::string out;
  std::string err;
};

// Runs the program in a shell, to allow redirections and variables.
Outcome RunShell(const std::string& before, const std::string& options) {
  TempDir files;
  Process shell({"/bin/sh", "-c",
                 before + " '" TAVITHUMB_WEB "' --policy '" POLICY_FOLDER "' --tool-memory " TOOL_MEMORY " " + options +
                     " >" + (files / "out") + " 2>" + (files / "err")},
                {});
  const int code = shell.Wait();
  return {code, ReadFile(files / "out"), ReadFile(files / "err")};
}

TEST(WebProgram, ReportsWhatIsWrongWithItsOptions) {
  TempDir folder;
  WriteFile(folder / "bad.conf", "root = [\"/nowhere/at/all\"]\n");
  const std::string root = "--root " + folder.Path();
  const std::string path(200, 'x');
  const std::pair<std::string, std::string> rows[] = {
      {"", "--root is required"},
      {"--root /nowhere/at/all", "'/nowhere/at/all' is not a folder that can be served; name one that exists"},
      {"--config " + (folder / "bad.conf"),
       "'/nowhere/at/all' is not a folder that can be served; name one that exists"},
      {root + " " + root, "'" + folder.Path() + "' needs a name: NAME=" + folder.Path()},
      {"--root a=" + folder.Path() + " --root a=" + folder.Path(), "'a' names two roots; rename one"},
      {"--root .a=" + folder.Path(),
       "'.a=" + folder.Path() + "': the name of a root must not be empty or start with a dot"},
      {root, "there is no request to answer: start it from a web server, or use --scgi to listen"},
      {root + " --scgi socket", "'socket' is not a valid address: use a path with a slash, or HOST:PORT"},
      {root + " --scgi 192.0.2.1:4000", "'192.0.2.1:4000' is not a loopback address"},
      {root + " --scgi localhost:http:x",
       "'localhost:http:x' is not a valid address: use a path or a loopback HOST:PORT"},
      {root + " --scgi /" + path, "'/" + path + "' is too long for the path of a socket: use at most 107 bytes"},
      {root + " --deadline 0", "--deadline: Value 0 not in range 1 to 86400"},
      {root + " --policy /usr", "'/usr' contains no policy.xml; use --policy to name a folder that does"},
      {root + " --colour", "The following argument was not expected: --colour"},
  };
  for (const auto& [options, message] : rows) {
    SCOPED_TRACE(options);
    const Outcome run = RunShell("", options);
    EXPECT_EQ(run.code, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "tavithumb-web: " + message + "; see 'tavithumb-web --help'\n");
  }
}

TEST(WebProgram, ReportsThatItCannotListen) {
  TempDir folder;
  const Outcome run = RunShell("", "--root " + folder.Path() + " --scgi " + (folder / "missing/socket"));
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.err,
            "tavithumb-web: cannot listen on '" + (folder / "missing/socket") + "': No such file or directory\n");
}

TEST(WebProgram, PrintsHelpAndVersion) {
  EXPECT_EQ(RunShell("", "--version").out, "tavithumb-web 1.0.0\n");
  const Outcome help = RunShell("", "--help");
  EXPECT_EQ(help.code, 0);
  for (const char* option : {"--root", "--scgi", "--hidden", "--children", "--waiting", "--deadline", "--policy",
                             "--tool-cpu", "--tool-memory", "--tool-file-size", "--tool-files", "--config"}) {
    EXPECT_NE(help.out.find(option), std::string::npos) << option;
  }
}

TEST(WebProgram, ReadsItsOptionsFromAFile) {
  TempDir folder;
  MakePng(folder / "photo.png", 20, 10);
  WriteFile(folder / "web.conf", "root = [\"photos=" + folder.Path() + "\"]\nhidden = true\n");
  const Outcome run =
      RunShell("TAVITHUMB_WEB_CONFIG=" + (folder / "web.conf") +
                   " GATEWAY_INTERFACE=CGI/1.1 REQUEST_METHOD=HEAD REQUEST_URI=/original/photos/photo.png",
               "");
  EXPECT_EQ(run.code, 0);
  EXPECT_NE(run.out.find("Content-Type: image/png\r\n"), std::string::npos) << run.out << run.err;
}

TEST(WebProgram, ReportsThatItsFileCannotBeRead) {
  const Outcome run = RunShell("TAVITHUMB_WEB_CONFIG=/nowhere/web.conf", "--root /");
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.err,
            "tavithumb-web: cannot read '/nowhere/web.conf', named by $TAVITHUMB_WEB_CONFIG; see "
            "'tavithumb-web --help'\n");
}

// Some web servers pass a query without "=" as arguments.
TEST(WebProgram, AcceptsNoOptionsFromAQuery) {
  const Outcome run = RunShell(
      "GATEWAY_INTERFACE=CGI/1.1 REQUEST_METHOD=GET QUERY_STRING=--root+/etc REQUEST_URI=/list/", "--root /etc");
  EXPECT_EQ(run.out,
            "Status: 400 Bad Request\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: 18\r\n"
            "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\nunknown parameter\n");
}

// A minimal system may not have its own name, or no IPv6.
bool IsKnown(const std::string& host) {
  addrinfo hints = {};
  hints.ai_flags = AI_ADDRCONFIG;
  addrinfo* found = nullptr;
  if (host != "127.0.0.1" && getaddrinfo(host.c_str(), "1", &hints, &found) != 0) return false;
  if (found != nullptr) freeaddrinfo(found);
  return true;
}

TEST(WebProgram, ListensOnALoopbackPort) {
  TempDir folder;
  const std::pair<std::string, std::string> rows[] = {
      {"127.0.0.1", "127.0.0.1"}, {"localhost", "localhost"}, {"[::1]", "::1"}};
  for (const auto& [host, address] : rows) {
    SCOPED_TRACE(host);
    if (!IsKnown(address)) continue;
    const std::string port = std::to_string(FreePort());
    for (const char* start : {"first", "again at once"}) {
      SCOPED_TRACE(start);
      Process program({TAVITHUMB_WEB, "--policy", POLICY_FOLDER, "--tool-memory", TOOL_MEMORY, "--root", folder.Path(),
                       "--scgi", host + ":" + port},
                      {});
      Process client({"/bin/bash", "-c",
                      "for i in {1..500}; do exec 3<>/dev/tcp/" + address + "/" + port + " && break; sleep 0.01; done" +
                          " 2>/dev/null; printf '24:CONTENT_LENGTH\\0000\\0SCGI\\0001\\0,' >&3; cat <&3 >'" +
                          (folder / start) + "'"},
                     {});
      client.Wait();
      EXPECT_EQ(ReadFile(folder / start).rfind("Status: 405 Method Not Allowed\r\n", 0), 0U)
          << ReadFile(folder / start);
    }
  }
}

TEST(WebProgram, AcceptsASocketFromItsSupervisor) {
  TempDir folder;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  (folder / "socket").copy(address.sun_path, sizeof address.sun_path - 1);
  const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listening, 5), 0);
  const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const std::string request = ScgiRequest({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", "/list/"}, {"SCRIPT_NAME", ""}});
  ASSERT_EQ(write(client, request.data(), request.size()), static_cast<ssize_t>(request.size()));
  Process program({"/bin/sh", "-c",
                   "exec 3<&" + std::to_string(listening) +
                       "; export LISTEN_PID=$$ LISTEN_FDS=1; "
                       "exec '" TAVITHUMB_WEB "' --policy '" POLICY_FOLDER "' --tool-memory " TOOL_MEMORY " --root " +
                       folder.Path()},
                  {});
  EXPECT_NE(ReadAll(client).find("{\"path\":\"\",\"folders\":[],\"files\":[],\"unreadable\":0}\n"), std::string::npos);
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_TRUE(Exists(folder / "socket")) << "it is the supervisor's";
  close(client);
  close(listening);
}

TEST(WebProgram, ReplacesASocketThatNobodyListensOn) {
  const Site site(Front::kNone);
  site.Program().Signal(SIGKILL);
  site.Program().Wait();
  ASSERT_TRUE(Exists(site.Socket()));
  Process again({TAVITHUMB_WEB, "--policy", POLICY_FOLDER, "--tool-memory", TOOL_MEMORY, "--root", site.Photos(),
                 "--scgi", site.Socket()},
                {});
  int connection = -1;
  for (int i = 0; i < 500 && connection == -1; ++i) {
    usleep(10000);
    connection = site.ConnectScgi();
  }
  EXPECT_NE(connection, -1);
  close(connection);
}

TEST(WebProgram, LeavesASocketInUseToItsOwner) {
  const Site site(Front::kNone);
  const Outcome run = RunShell("", "--root " + site.Photos() + " --scgi " + site.Socket());
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.err, "tavithumb-web: cannot listen on '" + site.Socket() + "': Address already in use\n");
  EXPECT_NE(site.Scgi({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", "/list/"}}).find("\"files\":[]"), std::string::npos);
}

}  // namespace
}  // namespace tavithumb::test
