// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tavi {

// Owns a file descriptor. Closing it preserves errno, so that the reason for a failure survives the clean-up.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
    const int reason = errno;
    if (fd_ >= 0) close(fd_);
    errno = reason;
  }

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }
  int Release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace tavi
