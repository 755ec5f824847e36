// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/scgi_server.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "web/connection.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

std::runtime_error Failure(const std::string& address) {
  return std::runtime_error("'" + address + "' cannot be listened at: " + std::generic_category().message(errno));
}

FileDescriptor NewSocket(int family) {
  return FileDescriptor(socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

sockaddr_un UnixAddress(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::invalid_argument("'" + path + "' is too long for a socket: 107 bytes at most");
  }
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

// A socket at which nobody listens any more.
bool IsLeftBehind(const sockaddr_un& address) {
  struct stat record = {};
  if (lstat(address.sun_path, &record) != 0 || !S_ISSOCK(record.st_mode)) return false;
  const FileDescriptor probe = NewSocket(AF_UNIX);
  return connect(probe.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1 &&
         errno == ECONNREFUSED;
}

FileDescriptor ListenUnix(const std::string& path) {
  const sockaddr_un address = UnixAddress(path);
  if (IsLeftBehind(address)) unlink(address.sun_path);
  FileDescriptor socket = NewSocket(AF_UNIX);
  const mode_t before = umask(0117);  // for its owner and group
  const int bound = bind(socket.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  umask(before);
  if (bound != 0 || listen(socket.Number(), SOMAXCONN) != 0) throw Failure(path);
  return socket;
}

bool IsLoopback(const addrinfo& entry) {
  if (entry.ai_family == AF_INET) {
    sockaddr_in address;
    std::memcpy(&address, entry.ai_addr, sizeof address);
    return ntohl(address.sin_addr.s_addr) >> 24 == 127;
  }
  sockaddr_in6 address;
  std::memcpy(&address, entry.ai_addr, sizeof address);
  return IN6_IS_ADDR_LOOPBACK(&address.sin6_addr) != 0;
}

FileDescriptor ListenTcp(const std::string& address, std::string host, const std::string& port) {
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
    throw std::invalid_argument("'" + address + "' is no address: it takes a path or a loopback HOST:PORT");
  }
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> entries(found, freeaddrinfo);
  if (!IsLoopback(*entries)) throw std::invalid_argument("'" + address + "' is no loopback address");
  FileDescriptor socket = NewSocket(entries->ai_family);
  const int yes = 1;
  setsockopt(socket.Number(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (bind(socket.Number(), entries->ai_addr, entries->ai_addrlen) != 0 || listen(socket.Number(), SOMAXCONN) != 0) {
    throw Failure(address);
  }
  return socket;
}

// The signals that the loop wants to see, as a file that can be waited for.
FileDescriptor WatchSignals() {
  sigset_t watched;
  sigemptyset(&watched);
  for (const int number : {SIGTERM, SIGINT, SIGCHLD}) sigaddset(&watched, number);
  sigprocmask(SIG_BLOCK, &watched, nullptr);
  return FileDescriptor(signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC));
}

// Takes the signals that have come. True when one of them asks to end.
bool TakeSignals(const FileDescriptor& signals) {
  bool asksToEnd = false;
  signalfd_siginfo info;
  while (read(signals.Number(), &info, sizeof info) == sizeof info) {
    if (info.ssi_signo != SIGCHLD) asksToEnd = true;
  }
  return asksToEnd;
}

void Refuse(const FileDescriptor& connection, const std::string& reason) {
  syslog(LOG_WARNING, "a request: %d %s", kServiceUnavailable, reason.c_str());
  Respond(connection.Number(), ErrorResponse({kServiceUnavailable, reason}, true));
}

class Server {
 public:
  Server(const Listener& listener, Workers* workers, std::size_t maxWaiting)
      : listener_(listener), workers_(workers), maxWaiting_(maxWaiting), signals_(WatchSignals()) {}

  void Run() {
    while (!isEnding_ || !workers_->AreDone()) {
      AwaitEvent();
      if (TakeSignals(signals_)) End();
      workers_->Tend();
      if (!isEnding_) Accept();
      StartWaiting();
    }
  }

 private:
  void AwaitEvent() {
    std::array<pollfd, 2> entries = {{{signals_.Number(), POLLIN, 0}, {listener_.Number(), POLLIN, 0}}};
    poll(entries.data(), isEnding_ || isPaused_ ? 1 : 2, isPaused_ ? pauseMilliseconds : workers_->NextEvent());
    isPaused_ = false;
  }

  void End() {
    if (isEnding_) workers_->EndAll();
    isEnding_ = true;
    for (const FileDescriptor& connection : waiting_) Refuse(connection, "the service ends");
    waiting_.clear();
  }

  void Accept() {
    while (true) {
      FileDescriptor connection(accept4(listener_.Number(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!connection.IsOpen()) {
        isPaused_ = errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS;
        return;
      }
      waiting_.push_back(std::move(connection));
      StartWaiting();
      if (waiting_.size() <= maxWaiting_) continue;
      Refuse(waiting_.back(), "too many requests are waiting");
      waiting_.pop_back();
    }
  }

  void StartWaiting() {
    while (!waiting_.empty() && workers_->HasRoom()) {
      workers_->Start(std::move(waiting_.front()));
      waiting_.pop_front();
    }
  }

  // How long no connection is taken when there is nothing to take it with.
  static constexpr int pauseMilliseconds = 100;

  const Listener& listener_;
  Workers* workers_;
  std::size_t maxWaiting_;
  FileDescriptor signals_;
  std::deque<FileDescriptor> waiting_;
  bool isEnding_ = false;
  bool isPaused_ = false;
};

}  // namespace

Listener::Listener(const std::string& address) {
  const std::size_t colon = address.rfind(':');
  if (address.find('/') != address.npos) {
    socket_ = ListenUnix(address);
    path_ = address;
  } else if (colon != address.npos) {
    socket_ = ListenTcp(address, address.substr(0, colon), address.substr(colon + 1));
  } else {
    throw std::invalid_argument("'" + address + "' is no address: it takes a path with a slash, or HOST:PORT");
  }
}

Listener::Listener(FileDescriptor socket) : socket_(std::move(socket)) {
  fcntl(socket_.Number(), F_SETFL, fcntl(socket_.Number(), F_GETFL) | O_NONBLOCK);
}

Listener::~Listener() {
  if (!path_.empty()) unlink(path_.c_str());
}

void AnswerConnection(FileDescriptor connection, Workers* workers) {
  const FileDescriptor signals = WatchSignals();
  workers->Start(std::move(connection));
  while (!workers->AreDone()) {
    pollfd entry = {signals.Number(), POLLIN, 0};
    poll(&entry, 1, workers->NextEvent());
    if (TakeSignals(signals)) workers->EndAll();
    workers->Tend();
  }
}

void Serve(const Listener& listener, Workers* workers, std::size_t maxWaiting) {
  Server(listener, workers, maxWaiting).Run();
}

}  // namespace tavithumb::apps::web
