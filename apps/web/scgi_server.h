// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "system/file_descriptor.h"
#include "web/workers.h"

namespace tavithumb::apps::web {

// Where a web server's connections arrive.
class Listener {
 public:
  // Listens on the path of a unix socket, or on a loopback host and port. A stale socket at the path is replaced.
  // Throws std::invalid_argument or std::runtime_error with a sentence for people.
  explicit Listener(const std::string& address);
  // Uses a listening socket that another program has created.
  explicit Listener(FileDescriptor socket);
  // Removes the unix socket that it has created.
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int Number() const { return socket_.Number(); }

 private:
  FileDescriptor socket_;
  std::string path_;
};

// Answers one connection; SIGTERM or SIGINT stops it. Returns when its worker has exited.
void AnswerConnection(FileDescriptor connection, Workers* workers);

// The connections that wait until a worker is free. Those over the limits are refused.
struct Queue {
  std::size_t maxLength;
  std::chrono::milliseconds timeout;
};

// Answers all connections, each with a worker, until SIGTERM or SIGINT. Requests that are being answered then are
// finished, unless a second signal stops them.
void Serve(const Listener& listener, Workers* workers, const Queue& queue);

}  // namespace tavithumb::apps::web
