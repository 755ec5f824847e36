// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

namespace tavithumb::apps {
namespace {

struct CloseStream {
  void operator()(DIR* stream) const { closedir(stream); }
};
using Stream = std::unique_ptr<DIR, CloseStream>;

// Reopens the folder, because an O_PATH descriptor can't be read.
Stream OpenStream(const FileDescriptor& folder) {
  const int opened = openat(folder.Number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return Stream(opened == -1 ? nullptr : fdopendir(opened));
}

FileDescriptor OpenFolder(int parent, const std::string& name) {
  return FileDescriptor(openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

std::vector<std::string> NamesIn(const FileDescriptor& folder) {
  std::vector<std::string> names;
  const Stream stream = OpenStream(folder);
  while (stream) {
    errno = 0;
    const dirent* const entry =
        readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): no other thread uses this stream
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  if (errno != 0) throw std::system_error(errno, std::generic_category());
  std::sort(names.begin(), names.end());
  return names;
}

Folder::Folder(const std::string& path) : path_(path), descriptor_(OpenFolder(AT_FDCWD, path)) {}

Folder::Folder(const Folder& parent, const std::string& name)
    : path_(parent.PathOf(name)), descriptor_(OpenFolder(parent.Number(), name)) {}

Folder::Folder(const std::string& name, std::string path)
    : path_(std::move(path)), descriptor_(OpenFolder(AT_FDCWD, name)) {}

void Folder::Enter() const {
  if (fchdir(descriptor_.Number()) != 0) throw std::system_error(errno, std::generic_category(), path_);
}

std::optional<struct stat> Folder::Stat(const std::string& name) const {
  struct stat record = {};
  if (fstatat(descriptor_.Number(), name.c_str(), &record, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return record;
}

}  // namespace tavithumb::apps
