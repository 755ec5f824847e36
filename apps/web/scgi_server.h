// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "system/file_descriptor.h"
#include "web/workers.h"

namespace tavithumb::apps::web {

// Where a web server's connections come in.
class Listener {
 public:
  // The path of a unix socket, or a loopback host and port. What a server that is gone has left at the path is
  // replaced. Throws std::invalid_argument or std::runtime_error with a sentence for people.
  explicit Listener(const std::string& address);
  // A listening socket that somebody else has made.
  explicit Listener(FileDescriptor socket);
  // Removes the socket that it made.
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int Number() const { return socket_.Number(); }

 private:
  FileDescriptor socket_;
  std::string path_;
};

// Answers this one connection; returns when nothing is left of its worker.
void AnswerConnection(FileDescriptor connection, Workers* workers);

// The connections that wait until a worker is free: how many at most, and how long. All others are refused.
struct Queue {
  std::size_t longest;
  std::chrono::milliseconds patience;
};

// Answers all connections, each by a worker, until SIGTERM or SIGINT; then those that are being answered still are,
// until a second signal.
void Serve(const Listener& listener, Workers* workers, const Queue& queue);

}  // namespace tavithumb::apps::web
