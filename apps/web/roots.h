// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "system/file_descriptor.h"

namespace tavithumb::apps::web {

// A folder that is shown. With an empty name it is the only one, and addresses begin right in it.
struct Root {
  std::string name;
  std::string folder;
};

// "NAME=DIR" or "DIR". Throws std::invalid_argument with a sentence for people.
Root ParseRoot(const std::string& text);

// Something below a root, held open so that it stays the same thing whatever happens to its name.
struct Found {
  FileDescriptor descriptor;  // O_PATH
  struct stat record;
  std::string path;  // absolute, without links

  // Opens the very same file, whatever has become of its name.
  std::string OpenPath() const { return "/proc/self/fd/" + std::to_string(descriptor.Number()); }
};

// What may be reached, and nothing else: below a root, whatever links and ".." say, and not hidden.
class Roots {
 public:
  // `showsHidden`: names that begin with a dot exist too; the folders of thumbnails never do.
  Roots(std::vector<Root> roots, bool showsHidden) : roots_(std::move(roots)), showsHidden_(showsHidden) {}

  // Throws HttpError 404 for all that is outside, hidden or missing, 403 for what can't be looked into.
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
