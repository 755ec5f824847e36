// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/scgi_server.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "system/clock.h"
#include "system/signals.h"
#include "web/connection.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

std::runtime_error Failure(const std::string& address) {
  return std::runtime_error("cannot listen on '" + address + "': " + std::generic_category().message(errno));
}

FileDescriptor NewSocket(int family) {
  return FileDescriptor(socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

sockaddr_un UnixAddress(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::invalid_argument("'" + path + "' is too long for the path of a socket: use at most 107 bytes");
  }
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

// A socket on which nobody listens.
bool IsStale(const sockaddr_un& address) {
  struct stat record = {};
  if (lstat(address.sun_path, &record) != 0 || !S_ISSOCK(record.st_mode)) return false;
  const FileDescriptor probe = NewSocket(AF_UNIX);
  return connect(probe.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1 &&
         errno == ECONNREFUSED;
}

FileDescriptor ListenUnix(const std::string& path) {
  const sockaddr_un address = UnixAddress(path);
  if (IsStale(address)) unlink(address.sun_path);
  FileDescriptor socket = NewSocket(AF_UNIX);
  const mode_t before = umask(0117);  // access for owner and group
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
    throw std::invalid_argument("'" + address + "' is not a valid address: use a path or a loopback HOST:PORT");
  }
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> entries(found, freeaddrinfo);
  if (!IsLoopback(*entries)) throw std::invalid_argument("'" + address + "' is not a loopback address");
  FileDescriptor socket = NewSocket(entries->ai_family);
  const int yes = 1;
  setsockopt(socket.Number(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (bind(socket.Number(), entries->ai_addr, entries->ai_addrlen) != 0 || listen(socket.Number(), SOMAXCONN) != 0) {
    throw Failure(address);
  }
  return socket;
}

class Server {
 public:
  Server(const Listener& listener, Workers* workers, const Queue& queue)
      : listener_(listener), workers_(workers), queue_(queue) {}

  void Run() {
    while (!workers_->IsInterrupted() || !workers_->AreDone()) {
      AwaitEvent();
      if (entries_[kSignal].revents != 0) Interrupt();
      if (HaveWorkersNews()) workers_->Collect();
      if (entries_[kListener].revents != 0 && !workers_->IsInterrupted()) Accept();
      StartWaiting();
      CloseExpired();
    }
  }

 private:
  struct Connection {
    FileDescriptor socket;
    Clock::time_point deadline;
  };
  using Connections = std::deque<Connection>;  // by deadline

  Clock::time_point NextEvent() const {
    Clock::time_point next = workers_->NextEvent();
    for (const Connections* connections : {&waiting_, &refused_}) {
      if (!connections->empty()) next = std::min(next, connections->front().deadline);
    }
    return next;
  }

  void AwaitEvent() {
    const bool isListening = !workers_->IsInterrupted() && !isPaused_;
    entries_ = {{signals_.Descriptor(), POLLIN, 0}, {isListening ? listener_.Number() : -1, POLLIN, 0}};
    workers_->AddTo(&entries_);
    poll(entries_.data(), entries_.size(), isPaused_ ? pauseMilliseconds : MillisecondsUntil(NextEvent()));
    isPaused_ = false;
  }

  bool HaveWorkersNews() const {
    return std::any_of(entries_.begin() + kFirstOfWorkers, entries_.end(),
                       [](const pollfd& entry) { return entry.revents != 0; }) ||
           Clock::now() >= workers_->NextEvent();
  }

  void Interrupt() {
    while (signals_.Receive()) workers_->Interrupt();
    for (; !waiting_.empty(); waiting_.pop_front()) Refuse(&waiting_.front(), "the service is stopping");
  }

  void Accept() {
    while (true) {
      FileDescriptor connection(accept4(listener_.Number(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!connection.IsOpen()) {
        isPaused_ = errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS;
        return;
      }
      waiting_.push_back({std::move(connection), Clock::now() + queue_.timeout});
      StartWaiting();
      if (waiting_.size() <= queue_.maxLength) continue;
      Refuse(&waiting_.back(), "too many requests are waiting");
      waiting_.pop_back();
    }
  }

  void StartWaiting() {
    while (!waiting_.empty() && workers_->HasRoom()) {
      workers_->Start(std::move(waiting_.front().socket));
      waiting_.pop_front();
    }
  }

  // A refused connection stays open for a while: its web server may still be sending the request, and would treat a
  // closed connection as a failure instead of reading the response.
  void Refuse(Connection* connection, const std::string& reason) {
    syslog(LOG_WARNING, "a request: %d %s", kServiceUnavailable, reason.c_str());
    Respond(connection->socket.Number(), ErrorResponse({kServiceUnavailable, reason}, true));
    refused_.push_back({std::move(connection->socket), Clock::now() + linger});
    if (refused_.size() > maxRefused) refused_.pop_front();
  }

  void CloseExpired() {
    const Clock::time_point now = Clock::now();
    for (; !waiting_.empty() && waiting_.front().deadline <= now; waiting_.pop_front()) {
      Refuse(&waiting_.front(), "the request waited too long");
    }
    while (!refused_.empty() && refused_.front().deadline <= now) refused_.pop_front();
  }

  // How long to stop accepting connections after the system runs out of descriptors or memory.
  static constexpr int pauseMilliseconds = 100;
  static constexpr std::chrono::seconds linger{5};
  static constexpr std::size_t maxRefused = 128;

  const Listener& listener_;
  Workers* workers_;
  Queue queue_;
  const Signals signals_{SIGTERM, SIGINT};
  enum Entry { kSignal, kListener, kFirstOfWorkers };
  std::vector<pollfd> entries_;
  Connections waiting_;
  Connections refused_;
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
    throw std::invalid_argument("'" + address + "' is not a valid address: use a path with a slash, or HOST:PORT");
  }
}

Listener::Listener(FileDescriptor socket) : socket_(std::move(socket)) {
  fcntl(socket_.Number(), F_SETFL, fcntl(socket_.Number(), F_GETFL) | O_NONBLOCK);
}

Listener::~Listener() {
  if (!path_.empty()) unlink(path_.c_str());
}

void AnswerConnection(FileDescriptor connection, Workers* workers) {
  const Signals signals{SIGTERM, SIGINT};
  workers->Start(std::move(connection));
  while (!workers->AreDone()) {
    std::vector<pollfd> entries = {{signals.Descriptor(), POLLIN, 0}};
    workers->AddTo(&entries);
    poll(entries.data(), entries.size(), MillisecondsUntil(workers->NextEvent()));
    while (signals.Receive()) workers->StopAll();
    workers->Collect();
  }
}

void Serve(const Listener& listener, Workers* workers, const Queue& queue) {
  Server(listener, workers, queue).Run();
}

}  // namespace tavithumb::apps::web
