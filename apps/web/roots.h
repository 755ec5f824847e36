// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "system/file_descriptor.h"

namespace tavithumb::apps::web {

// A folder that is served. With an empty name it is the only one, and addresses are relative to it.
struct Root {
  std::string name;
  std::string folder;
};

// "NAME=DIR" or "DIR". Throws std::invalid_argument with a message for people.
Root ParseRoot(const std::string& text);

// A file or folder below a root, held open so that it stays the same one even if its name changes meanwhile.
struct Found {
  FileDescriptor descriptor;  // O_PATH
  struct stat record;
  std::string path;  // absolute and without links; relative to the folder once root works there as its owner

  // Opening this path opens the same file, even if its name has changed.
  std::string OpenPath() const { return "/proc/self/fd/" + std::to_string(descriptor.Number()); }
  // Whether it is what has this name now.
  bool IsAt(const std::string& name) const;
};

// Limits access to files that are below a root, whatever links and ".." say, and not hidden.
class Roots {
 public:
  // `showsHidden`: names that begin with a dot are served too, but never the folders of thumbnails.
  Roots(std::vector<Root> roots, bool showsHidden) : roots_(std::move(roots)), showsHidden_(showsHidden) {}

  // Throws HttpError 404 for anything outside, hidden or missing, 403 for anything that can't be accessed.
  Found Find(const std::vector<std::string>& path) const;

  bool IsShown(const std::string& name) const;
  bool AreNamed() const { return !roots_.front().name.empty(); }
  const std::vector<Root>& All() const { return roots_; }

 private:
  const Root& RootOf(const std::vector<std::string>& path) const;

  std::vector<Root> roots_;
  bool showsHidden_;
};

}  // namespace tavithumb::apps::web
