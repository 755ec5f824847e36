// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// The names in an open folder, sorted, without "." and "..". Throws std::system_error when it can't be read.
std::vector<std::string> NamesIn(const FileDescriptor& folder);

// A folder held open: what is done in it stays in it, whatever happens to its path meanwhile. No link in it is
// followed. Where it could not be opened, errno tells why.
class Folder {
 public:
  explicit Folder(const std::string& path);
  Folder(const Folder& parent, const std::string& name);

  bool IsOpen() const { return descriptor_.IsOpen(); }
  int Number() const { return descriptor_.Number(); }
  const std::string& Path() const { return path_; }
  std::string PathOf(const std::string& name) const;
  std::vector<std::string> Names() const { return NamesIn(descriptor_); }

  // What `name` is, be it a link; nothing when it is not there.
  std::optional<struct stat> Look(const std::string& name) const;

 private:
  std::string path_;
  FileDescriptor descriptor_;
};

}  // namespace tavithumb::apps
