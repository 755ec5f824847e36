// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <unistd.h>

#include <utility>

namespace tavithumb::apps {

// Owns a file descriptor.
class FileDescriptor {
 public:
  explicit FileDescriptor(int number = -1) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~FileDescriptor() {
    if (number_ != -1) close(number_);
  }

  bool IsOpen() const { return number_ != -1; }
  int Number() const { return number_; }

  // Releases ownership.
  int Release() { return std::exchange(number_, -1); }

 private:
  int number_;
};

}  // namespace tavithumb::apps
