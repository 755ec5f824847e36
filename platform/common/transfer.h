// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace tavi {

// How much is transferred at a time; small enough for the stack of any thread.
constexpr std::size_t kTransferSize = 16384;

// read(), repeated if a signal interrupts it.
inline ssize_t ReadSome(int fd, char* data, std::size_t size) {
  ssize_t got;
  do {
    got = read(fd, data, size);
  } while (got == -1 && errno == EINTR);
  return got;
}

// Waits until `fd` is ready for data, or broken, which the next write reports.
inline void AwaitWritable(int fd) {
  pollfd entry{fd, POLLOUT, 0};
  while (poll(&entry, 1, -1) == -1 && errno == EINTR) {
  }
}

// Writes all bytes, despite short writes, signals and non-blocking descriptors.
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

// Copies from the current positions of both descriptors, up to `limit` bytes or the end of the input. Returns the
// number of bytes copied, or -1 with errno set.
inline std::int64_t CopyBytes(int from, int to, std::uint64_t limit) {
  std::array<char, kTransferSize> data;
  std::uint64_t left = limit;
  while (left > 0) {
    const ssize_t got =
        ReadSome(from, data.data(), static_cast<std::size_t>(std::min<std::uint64_t>(left, data.size())));
    if (got == 0) break;
    if (got == -1 || !WriteAll(to, data.data(), static_cast<std::size_t>(got))) return -1;
    left -= static_cast<std::uint64_t>(got);
  }
  return static_cast<std::int64_t>(limit - left);
}

}  // namespace tavi
