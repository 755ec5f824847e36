// SPDX-License-Identifier: GPL-3.0-or-later
#include "site.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <preload.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>

namespace tavithumb::test {
namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int ConnectUnix(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return connection;
  close(connection);
  return -1;
}

template <typename Condition>
void AwaitListening(const Process& process, const Condition& isListening) {
  for (int attempt = 0; attempt < 1000; ++attempt) {
    if (isListening()) return;
    if (kill(process.Id(), 0) != 0) break;
    usleep(10000);
  }
  throw std::runtime_error("a server does not listen");
}

bool CanConnect(int connection) {
  if (connection != -1) close(connection);
  return connection != -1;
}

// Without a connection, which would be the program's first request.
bool IsListeningOn(const std::string& path) {
  constexpr char acceptsConnections[] = " 00010000 ";
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    if (line.find(acceptsConnections) != line.npos && line.substr(line.rfind(' ') + 1) == path) return true;
  }
  return false;
}

void SendAll(int connection, const std::string& text) {
  for (std::size_t sent = 0; sent < text.size();) {
    const ssize_t count = send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;  // rejected, which the response shows
    sent += static_cast<std::size_t>(count);
  }
}

Response ParseResponse(const std::string& text) {
  static const std::set<std::string> others = {"connection", "date", "server", "transfer-encoding", "keep-alive"};
  Response response;
  const std::size_t end = text.find("\r\n\r\n");
  if (text.size() < 12 || end == text.npos) return response;
  response.status = std::stoi(text.substr(9, 3));
  response.body = text.substr(end + 4);
  std::istringstream lines(text.substr(0, end));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::size_t colon = line.find(": ");
    std::string name = line.substr(0, colon);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    if (others.count(name) == 0) response.headers.emplace_back(name, line.substr(colon + 2));
  }
  std::sort(response.headers.begin(), response.headers.end());
  return response;
}

}  // namespace

int FreePort() {
  std::random_device random;
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const int port = 10000 + static_cast<int>(random() % 20000);
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(port);
    const bool isFree = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    if (isFree) return port;
  }
  throw std::runtime_error("no free port");
}

std::string Response::Header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (key == name) return value;
  }
  return "";
}

int ConnectTo(int port, int receiveBuffer) {
  const sockaddr_in address = Loopback(port);
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const timeval patience = {120, 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (receiveBuffer != 0) setsockopt(connection, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return connection;
  close(connection);
  return -1;
}

std::string ReadAll(int connection) {
  std::string all;
  std::array<char, 65536> data;
  for (ssize_t got = 1; got > 0;) {
    got = recv(connection, data.data(), data.size(), 0);
    if (got > 0) all.append(data.data(), static_cast<std::size_t>(got));
    if (got < 0 && errno != ECONNRESET) all += " (not to its end)";
  }
  return all;
}

Response Exchange(int port, const std::string& request) {
  const int connection = ConnectTo(port);
  if (connection == -1) return {};
  SendAll(connection, request);
  const std::string response = ReadAll(connection);
  close(connection);
  return ParseResponse(response);
}

Process::Process(const std::vector<std::string>& argv, const std::vector<std::string>& environment, uid_t user)
    : process_(fork()) {
  if (process_ != 0) return;
  setpgid(0, 0);
  if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) _exit(126);
  for (const std::string& variable : environment) putenv(const_cast<char*>(variable.c_str()));
  std::vector<char*> words;
  for (const std::string& word : argv) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execv(words.front(), words.data());
  _exit(127);
}

Process::~Process() {
  if (process_ == -1) return;
  const pid_t group = process_;
  kill(process_, SIGTERM);
  Wait();
  kill(-group, SIGKILL);  // processes that it has started and left, as fcgiwrap does
}

void Process::Signal(int number) const {
  kill(process_, number);
}

int Process::Wait() {
  int status = 0;
  while (waitpid(process_, &status, 0) == -1 && errno == EINTR) {
  }
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string ScgiRequest(const std::vector<std::pair<std::string, std::string>>& variables) {
  std::string block = std::string("CONTENT_LENGTH") + '\0' + "0" + '\0' + "SCGI" + '\0' + "1" + '\0';
  for (const auto& [name, value] : variables) block += name + '\0' + value + '\0';
  return std::to_string(block.size()) + ":" + block + ",";
}

void PrintTo(Front front, std::ostream* stream) {
  const char* const names[] = {"None",          "NginxByScgi",     "LighttpdByScgi",    "NginxByCgi",
                               "LighttpdByCgi", "NginxBySendfile", "LighttpdBySendfile"};
  *stream << names[static_cast<int>(front)];
}

// In /tmp, where the program may always write: the probe's notes.
TempDir Site::FolderInTmp() {
  unsetenv("TMPDIR");
  return TempDir();
}

std::string Site::WhyNotAs(uid_t user) {
  if (user == 0) return "";
  if (geteuid() != 0) return "needs root";
  Process probe({"/bin/sh", "-c", "test -x '" TAVITHUMB_WEB "' && test -r '" POLICY_FOLDER "/policy.xml'"}, {}, user);
  return probe.Wait() == 0 ? "" : "needs a build folder that other users can reach";
}

Site::Site(Front front, const SiteOptions& options) : folder_(FolderInTmp()), prefix_(options.prefix) {
  chmod(folder_.Path().c_str(), 0755);
  std::filesystem::create_directory(Photos());
  std::filesystem::create_directory(folder_ / "documents");
  std::filesystem::create_directory(Store());
  if (options.user != 0 && chown(Store().c_str(), options.user, options.user) != 0) ADD_FAILURE() << "chown";
  Start(front, options);
}

SiteOptions With(SiteOptions options, const std::string& sendfile) {
  options.program.insert(options.program.end(), {"--sendfile", sendfile});
  return options;
}

// The requests that the program answers; `moreOfServer`: how lighttpd treats its answers.
std::string Site::LighttpdRule(const std::string& moreOfServer) const {
  return "$HTTP[\"url\"] =~ \"^" + prefix_ + "/(thumb|original|list)(/|$)\" { scgi.server = ( \"" +
         (prefix_.empty() ? "/" : prefix_) + "\" => (( \"socket\" => \"" + Socket() +
         "\", \"check-local\" => \"disable\", \"fix-root-scriptname\" => \"enable\"" + moreOfServer + " )) ) }\n";
}

// A location of nginx for the files that it sends for the program.
std::string SentFrom(const std::string& address, const std::string& folder) {
  return "location " + address + " { internal; alias " + folder + "/; disable_symlinks on from=" + folder +
         "; add_header X-Content-Type-Options nosniff; add_header Vary Accept; }\n";
}

void Site::Start(Front front, const SiteOptions& options) {
  const std::string nginxScgi = "include /etc/nginx/scgi_params; scgi_param SCRIPT_NAME '" + prefix_ +
                                "'; scgi_pass unix:" + Socket() + "; scgi_max_temp_file_size 0;";
  switch (front) {
    case Front::kNone:
      return StartProgram(options);
    case Front::kNginxScgi:
      StartProgram(options);
      return StartNginx(nginxScgi);
    case Front::kNginxSendfile:
      StartProgram(With(options, "X-Accel-Redirect"));
      return StartNginx(nginxScgi + " scgi_param TAVITHUMB_SENDFILE 'X-Accel-Redirect /files';",
                        SentFrom("/files/", Photos()) + SentFrom("/files/.tavi_store/", Store()));
    case Front::kLighttpdScgi:
      StartProgram(options);
      return StartLighttpd("\"mod_scgi\"", LighttpdRule(""));
    case Front::kLighttpdSendfile:
      StartProgram(With(options, "X-Sendfile"));
      return StartLighttpd("\"mod_setenv\", \"mod_scgi\"",
                           "setenv.set-environment = ( \"TAVITHUMB_SENDFILE\" => \"X-Sendfile\" )\n" +
                               LighttpdRule(", \"x-sendfile\" => \"enable\", \"x-sendfile-docroot\" => ( \"" +
                                            Photos() + "/\", \"" + Store() + "/\" )"));
    case Front::kNginxCgi: {
      const std::string script = WriteCgi(options);
      helper_ = std::make_unique<Process>(
          std::vector<std::string>{"/usr/sbin/fcgiwrap", "-c", "4", "-s", "unix:" + (folder_ / "fcgi")},
          std::vector<std::string>{});
      AwaitListening(*helper_, [this] { return CanConnect(ConnectUnix(folder_ / "fcgi")); });
      return StartNginx("include /etc/nginx/fastcgi_params; fastcgi_param SCRIPT_NAME '" + prefix_ +
                        "'; fastcgi_param SCRIPT_FILENAME " + script + "; fastcgi_pass unix:" + (folder_ / "fcgi") +
                        ";");
    }
    case Front::kLighttpdCgi:
      prefix_ = "/photos.cgi";
      std::filesystem::copy_file(WriteCgi(options), folder_ / "documents/photos.cgi");
      return StartLighttpd("\"mod_cgi\"", "cgi.assign = ( \".cgi\" => \"\" )\n");
  }
}

std::vector<std::string> Site::EnvironmentOf(const SiteOptions& options) const {
  std::vector<std::string> environment = Preloading(WEB_PROBE);
  environment.push_back("PROBE_FILE=" + (folder_ / "noted"));
  if (options.hasStore) environment.push_back("TAVITHUMB_STORE=" + Store());
  environment.insert(environment.end(), options.environment.begin(), options.environment.end());
  return environment;
}

void Site::StartProgram(const SiteOptions& options) {
  std::vector<std::string> argv = {TAVITHUMB_WEB, "--scgi",        Socket(),   "--policy",
                                   POLICY_FOLDER, "--tool-memory", TOOL_MEMORY};
  for (const std::string& root : options.roots.empty() ? std::vector<std::string>{Photos()} : options.roots) {
    argv.insert(argv.end(), {"--root", root});
  }
  argv.insert(argv.end(), options.program.begin(), options.program.end());
  if (options.user != 0) chmod(folder_.Path().c_str(), 0777);
  program_ = std::make_unique<Process>(argv, EnvironmentOf(options), options.user);
  AwaitListening(*program_, [this] { return IsListeningOn(Socket()); });
}

// A program for the web server to start, with its settings.
std::string Site::WriteCgi(const SiteOptions& options) {
  std::string script = "#!/bin/sh\n";
  for (const std::string& variable : EnvironmentOf(options)) script += "export '" + variable + "'\n";
  script += "exec '" TAVITHUMB_WEB "' --policy '" POLICY_FOLDER "' --tool-memory " TOOL_MEMORY;
  for (const std::string& option : options.program) script += " " + option;
  WriteFile(folder_ / "start", script + " --root " + Photos() + "\n");
  chmod((folder_ / "start").c_str(), 0755);
  return folder_ / "start";
}

void Site::StartNginx(const std::string& location, const std::string& others) {
  port_ = FreePort();
  std::string config = geteuid() == 0 ? "user root;\n" : "";
  config += "daemon off; worker_processes 2; error_log " + (folder_ / "nginx.log") + "; pid " + (folder_ / "pid") +
            ";\nevents {}\nhttp { access_log off; merge_slashes off;";
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    config += std::string(" ") + kind + "_temp_path " + (folder_ / kind) + ";";
  }
  config += "\nserver { listen 127.0.0.1:" + std::to_string(port_) + ";\nlocation / { " + location + " }\n" + others +
            " } }\n";
  WriteFile(folder_ / "nginx.conf", config);
  server_ = std::make_unique<Process>(
      std::vector<std::string>{"/usr/sbin/nginx", "-e", folder_ / "nginx.log", "-c", folder_ / "nginx.conf"},
      std::vector<std::string>{});
  AwaitListening(*server_, [this] { return CanConnect(ConnectTo(port_)); });
}

void Site::StartLighttpd(const std::string& modules, const std::string& rule) {
  port_ = FreePort();
  WriteFile(folder_ / "lighttpd.conf", "server.modules = ( " + modules + " )\nserver.document-root = \"" +
                                           (folder_ / "documents") +
                                           "\"\nserver.bind = \"127.0.0.1\"\nserver.port = " + std::to_string(port_) +
                                           "\nserver.errorlog = \"" + (folder_ / "lighttpd.log") + "\"\n" + rule);
  server_ =
      std::make_unique<Process>(std::vector<std::string>{"/usr/sbin/lighttpd", "-D", "-f", folder_ / "lighttpd.conf"},
                                std::vector<std::string>{});
  AwaitListening(*server_, [this] { return CanConnect(ConnectTo(port_)); });
}

Response Site::Get(const std::string& address, const std::vector<std::string>& headers) const {
  return Ask("GET", address, headers);
}

Response Site::Ask(const std::string& method, const std::string& address,
                   const std::vector<std::string>& headers) const {
  std::string request = method + " " + prefix_ + address + " HTTP/1.0\r\nHost: localhost\r\n";
  for (const std::string& header : headers) request += header + "\r\n";
  return Exchange(port_, request + "\r\n");
}

int Site::ConnectScgi() const {
  return ConnectUnix(Socket());
}

std::string Site::Scgi(const std::vector<std::pair<std::string, std::string>>& variables) const {
  const int connection = ConnectScgi();
  SendAll(connection, ScgiRequest(variables));
  const std::string response = ReadAll(connection);
  close(connection);
  return response;
}

std::vector<std::string> Site::Noted(const std::string& kind) const {
  std::vector<std::string> noted;
  if (!Exists(folder_ / "noted")) return noted;
  std::istringstream lines(ReadFile(folder_ / "noted"));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind(kind, 0) == 0) noted.push_back(line.substr(kind.size()));
  }
  return noted;
}

}  // namespace tavithumb::test
