// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "maker/picture.h"

namespace tavithumb::maker {

// What a decoder reads: an open file, or bytes in memory such as an embedded preview. Reading never moves a position,
// so that several decoders may try the same input.
class Input {
 public:
  // Opens the file. Throws Declined (kUnreadable).
  explicit Input(const std::string& path);
  // The bytes must outlive the input.
  explicit Input(Bytes bytes) : bytes_(bytes), size_(bytes.size) {}
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  std::uint64_t SizeInBytes() const { return size_; }

  // Up to `count` bytes from `offset`; fewer only at the end. Throws Declined (kUnreadable).
  std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t count) const;

  // The whole content. Throws Declined (kTooLarge) if it has more than `most` bytes.
  std::vector<std::uint8_t> ReadAll(std::size_t most) const;

 private:
  int file_ = -1;
  Bytes bytes_;
  std::uint64_t size_ = 0;
};

}  // namespace tavithumb::maker
