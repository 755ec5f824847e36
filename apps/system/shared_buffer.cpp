// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/shared_buffer.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace tavithumb::apps {

// The bytes follow.
struct SharedBuffer::Layout {
  std::size_t size;

  char* Bytes() { return reinterpret_cast<char*>(this + 1); }
};

SharedBuffer::SharedBuffer(std::size_t capacity) : capacity_(capacity) {
  void* const memory = mmap(nullptr, sizeof(Layout) + capacity_, PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "shared memory");
  layout_ = static_cast<Layout*>(memory);
}

SharedBuffer::~SharedBuffer() {
  munmap(layout_, sizeof(Layout) + capacity_);
}

bool SharedBuffer::Write(const std::vector<std::uint8_t>& content) const {
  if (content.size() > capacity_) return false;
  std::copy(content.begin(), content.end(), layout_->Bytes());
  layout_->size = content.size();
  return true;
}

std::string_view SharedBuffer::Content() const {
  return {layout_->Bytes(), std::min(layout_->size, capacity_)};
}

}  // namespace tavithumb::apps
