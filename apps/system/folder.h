// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "system/file_descriptor.h"
#include "system/paths.h"

namespace tavithumb::apps {

// The names in an open folder, sorted, without "." and "..". Throws std::system_error if the folder can't be read.
std::vector<std::string> NamesIn(const FileDescriptor& folder);

// An open folder: operations stay inside it even if its path changes meanwhile, and never follow a link. If it could
// not be opened, errno is set.
class Folder {
 public:
  explicit Folder(const std::string& path);
  Folder(const Folder& parent, const std::string& name);

  // Another process's working directory, which is the open folder `other` there: see Enter().
  static Folder Here(const Folder& other) { return {".", other.path_}; }

  // Makes it the working directory. Throws std::system_error.
  void Enter() const;

  bool IsOpen() const { return descriptor_.IsOpen(); }
  int Number() const { return descriptor_.Number(); }
  const std::string& Path() const { return path_; }
  std::string PathOf(const std::string& name) const { return JoinPath(path_, name); }
  std::vector<std::string> Names() const { return NamesIn(descriptor_); }

  // The status of `name` itself, even if it is a link; nothing, with errno set, when it can't be read.
  std::optional<struct stat> Stat(const std::string& name) const;

 private:
  Folder(const std::string& name, std::string path);

  std::string path_;
  FileDescriptor descriptor_;
};

}  // namespace tavithumb::apps
