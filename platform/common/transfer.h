// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace tavi {

// How much is moved at a time; small enough for the stack of any thread.
constexpr std::size_t kTransferSize = 16384;

// read() that goes on after a signal.
inline ssize_t ReadSome(int fd, char* data, std::size_t size) {
  ssize_t got;
  do {
    got = read(fd, data, size);
  } while (got == -1 && errno == EINTR);
  return got;
}

// Waits until `fd` takes data, or is broken, which the write then tells.
inline void AwaitWritable(int fd) {
  pollfd entry{fd, POLLOUT, 0};
  while (poll(&entry, 1, -1) == -1 && errno == EINTR) {
  }
}

// Writes all of it, however short the single writes are, after signals and to non-blocking descriptors as well.
inline bool WriteAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written >= 0) {
      data += written;
      size -= static_cast<std::size_t>(written);
    } else if (errno == EAGAIN) {
      AwaitWritable(fd);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace tavi
