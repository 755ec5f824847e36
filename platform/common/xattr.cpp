// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/xattr.h"

#include <sys/types.h>
#include <sys/xattr.h>

#include <cerrno>

namespace tavi {
namespace {

// The output of `read` in a buffer of the size that `read(nullptr, 0)` returns; repeated if it has grown meanwhile.
template <typename Read>
std::optional<std::string> ReadAll(const Read& read) {
  ssize_t got;
  std::string value;
  do {
    const ssize_t size = read(nullptr, 0);
    if (size == -1) return std::nullopt;
    value.resize(static_cast<std::size_t>(size));
    got = size == 0 ? 0 : read(value.data(), value.size());
  } while (got == -1 && errno == ERANGE);
  if (got == -1) return std::nullopt;
  value.resize(static_cast<std::size_t>(got));
  return value;
}

bool NeedsPath(int result) {
  return result == -1 && errno == EBADF;
}

}  // namespace

std::string PathOfDescriptor(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

std::optional<std::string> GetXattr(int fd, const char* name) {
  std::optional<std::string> value =
      ReadAll([=](char* data, std::size_t size) { return fgetxattr(fd, name, data, size); });
  if (value || errno != EBADF) return value;
  const std::string path = PathOfDescriptor(fd);
  return ReadAll([&](char* data, std::size_t size) { return getxattr(path.c_str(), name, data, size); });
}

bool SetXattr(int fd, const char* name, const std::string& value) {
  const int result = fsetxattr(fd, name, value.data(), value.size(), 0);
  if (!NeedsPath(result)) return result == 0;
  return setxattr(PathOfDescriptor(fd).c_str(), name, value.data(), value.size(), 0) == 0;
}

bool RemoveXattr(int fd, const char* name) {
  const int result = fremovexattr(fd, name);
  return NeedsPath(result) ? removexattr(PathOfDescriptor(fd).c_str(), name) == 0 : result == 0;
}

std::vector<std::string> ListXattrs(int fd) {
  const std::optional<std::string> list =
      ReadAll([=](char* data, std::size_t size) { return flistxattr(fd, data, size); });
  std::vector<std::string> names;
  for (std::size_t start = 0; list && start < list->size(); start += names.back().size() + 1) {
    names.emplace_back(list->c_str() + start);
  }
  return names;
}

}  // namespace tavi
