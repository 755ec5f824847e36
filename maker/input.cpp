// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "maker/declined.h"

namespace tavithumb::maker {
namespace {

[[noreturn]] void Unreadable() {
  throw Declined(Reason::kUnreadable, std::strerror(errno));  // NOLINT(concurrency-mt-unsafe): a worker has one thread
}

}  // namespace

Input::Input(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat record = {};
  if (file_ == -1 || fstat(file_, &record) == -1) Unreadable();
  size_ = static_cast<std::uint64_t>(record.st_size);
}

Input::~Input() {
  if (file_ != -1) close(file_);
}

std::size_t Input::ReadAt(std::uint64_t offset, void* buffer, std::size_t count) const {
  if (offset >= size_) return 0;
  count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - offset));
  if (file_ == -1) {
    std::memcpy(buffer, bytes_.data + offset, count);
    return count;
  }
  std::size_t done = 0;
  while (done < count) {
    const ssize_t step =
        pread(file_, static_cast<char*>(buffer) + done, count - done, static_cast<off_t>(offset + done));
    if (step == 0) break;
    if (step > 0) {
      done += static_cast<std::size_t>(step);
    } else if (errno != EINTR) {
      Unreadable();
    }
  }
  return done;
}

std::vector<std::uint8_t> Input::ReadAll(std::size_t most) const {
  if (size_ > most) throw Declined(Reason::kTooLarge, "the file has " + std::to_string(size_) + " bytes");
  std::vector<std::uint8_t> content(static_cast<std::size_t>(size_));
  content.resize(ReadAt(0, content.data(), content.size()));
  return content;
}

}  // namespace tavithumb::maker
