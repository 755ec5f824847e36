// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tavithumb::apps {

// Bytes in memory that this process shares with those forked later, so that one of them can return a file of any
// content. Takes only the memory that is used.
class SharedBuffer {
 public:
  // Throws std::system_error.
  explicit SharedBuffer(std::size_t capacity);
  ~SharedBuffer();
  SharedBuffer(const SharedBuffer&) = delete;
  SharedBuffer& operator=(const SharedBuffer&) = delete;

  // Replaces the content. False, and nothing is changed, if it has more bytes than fit.
  bool Write(const std::vector<std::uint8_t>& content) const;

  // What has been written last; within the buffer, whatever a process has done to it.
  std::string_view Content() const;

 private:
  struct Layout;

  std::size_t capacity_;
  Layout* layout_;
};

}  // namespace tavithumb::apps
