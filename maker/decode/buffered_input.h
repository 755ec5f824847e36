// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "maker/declined.h"
#include "maker/input.h"

namespace tavithumb::maker {

// For libraries that read a few bytes at a time and through which no exception may pass.
class BufferedInput {
 public:
  explicit BufferedInput(const Input& input) : input_(input) {}

  std::uint64_t SizeInBytes() const { return input_.SizeInBytes(); }
  // Whether a read has failed; those at the end of the input don't.
  bool IsUnreadable() const { return isUnreadable_; }

  // Up to `count` bytes from `offset`; fewer at the end, or if the file can't be read.
  std::size_t Read(std::uint64_t offset, void* data, std::size_t count) {
    std::size_t done = 0;
    try {
      while (done < count) {
        const std::size_t step = ReadSome(offset + done, static_cast<std::uint8_t*>(data) + done, count - done);
        if (step == 0) break;
        done += step;
      }
    } catch (const Declined&) {
      isUnreadable_ = true;
    }
    return done;
  }

 private:
  std::size_t ReadSome(std::uint64_t offset, std::uint8_t* data, std::size_t count) {
    if (offset < start_ || offset >= start_ + size_) {
      if (count >= buffer_.size()) return input_.ReadAt(offset, data, count);
      size_ = 0;
      size_ = input_.ReadAt(offset, buffer_.data(), buffer_.size());
      start_ = offset;
    }
    const auto skipped = static_cast<std::size_t>(offset - start_);
    const std::size_t step = std::min(count, size_ - skipped);
    std::memcpy(data, buffer_.data() + skipped, step);
    return step;
  }

  const Input& input_;
  bool isUnreadable_ = false;
  std::array<std::uint8_t, 4096> buffer_;
  std::uint64_t start_ = 0;
  std::size_t size_ = 0;
};

}  // namespace tavithumb::maker
