// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>
#include <temp_dir.h>

#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace tavithumb::test {

struct Response {
  int status = 0;
  // Those about the content, in alphabetical order; not those of the connection and the server.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  std::string Header(const std::string& name) const;  // "" if it is missing
};

// Sends a whole HTTP request to a loopback port and returns the whole response.
Response Exchange(int port, const std::string& request);

// An unused port, outside the range that the system assigns to connections.
int FreePort();

// Connects without sending anything. A `receiveBuffer` limits how many bytes may arrive before they are read.
int ConnectTo(int port, int receiveBuffer = 0);

// A child process in a group of its own, stopped with TERM together with its group.
class Process {
 public:
  // With `user` 0 it runs as the current user.
  Process(const std::vector<std::string>& argv, const std::vector<std::string>& environment, uid_t user = 0);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t Id() const { return process_; }
  void Signal(int number) const;
  // Its exit status, or minus the signal that killed it.
  int Wait();

 private:
  pid_t process_;
};

// Which web server is in front of the program, and how it reaches it.
// With SCGI, it may send the files itself.
enum class Front { kNone, kNginxScgi, kLighttpdScgi, kNginxCgi, kLighttpdCgi, kNginxSendfile, kLighttpdSendfile };
void PrintTo(Front front, std::ostream* stream);

struct SiteOptions {
  std::vector<std::string> program;      // options besides roots and address
  std::vector<std::string> environment;  // of the program
  std::vector<std::string> roots;        // instead of the one folder Photos()
  std::string prefix;                    // of all addresses
  bool hasStore = false;                 // Store() is the program's
  uid_t user = 0;                        // not 0: the program runs as this user, for which the test must be root
};

// A folder of pictures, served by the program and a web server in front of it on a free loopback port.
class Site {
 public:
  explicit Site(Front front, const SiteOptions& options = {});

  // Why the program can't run as this user; "" if it can.
  static std::string WhyNotAs(uid_t user);

  std::string Photos() const { return folder_ / "photos"; }
  // An empty folder of the program's user, from which the web server may send files too.
  std::string Store() const { return folder_ / "store"; }
  std::string operator/(const std::string& name) const { return Photos() + "/" + name; }
  int Port() const { return port_; }
  const std::string& Prefix() const { return prefix_; }
  Process& Program() const { return *program_; }
  std::string Socket() const { return folder_ / "socket"; }

  // A GET of an address below the prefix, with header lines such as "Range: bytes=0-1".
  Response Get(const std::string& address, const std::vector<std::string>& headers = {}) const;
  Response Ask(const std::string& method, const std::string& address,
               const std::vector<std::string>& headers = {}) const;

  // One SCGI request to the program itself; returns the CGI response unchanged.
  std::string Scgi(const std::vector<std::pair<std::string, std::string>>& variables) const;
  int ConnectScgi() const;

  // The lines written by the probe that start with `kind`, without it.
  std::vector<std::string> Noted(const std::string& kind) const;

 private:
  static TempDir FolderInTmp();
  void Start(Front front, const SiteOptions& options);
  std::vector<std::string> EnvironmentOf(const SiteOptions& options) const;
  void StartProgram(const SiteOptions& options);
  void StartNginx(const std::string& location, const std::string& others = "");
  void StartLighttpd(const std::string& modules, const std::string& rule);
  std::string LighttpdRule(const std::string& moreOfServer) const;
  std::string WriteCgi(const SiteOptions& options);

  TempDir folder_;
  std::string prefix_;
  int port_ = 0;
  std::unique_ptr<Process> program_;
  std::unique_ptr<Process> helper_;
  std::unique_ptr<Process> server_;
};

// The text of an SCGI request.
std::string ScgiRequest(const std::vector<std::pair<std::string, std::string>>& variables);

// Everything that is sent until the peer closes the connection.
std::string ReadAll(int connection);

}  // namespace tavithumb::test
