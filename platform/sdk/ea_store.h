// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

namespace tavi {

// A second place for EA entries, for sources next to which nothing can be stored: a folder that mirrors the absolute
// paths of the sources without links. With the store /cache, the entries of /photos/a.jpg are in
// /cache/photos/.tavi_ea/a.jpg.
struct Store {
  std::string folder;  // absolute, without a slash at the end
  bool isForAll;       // new entries of all sources go there

  // Whether `path`, which is absolute, is the store or below it.
  bool Holds(const std::string& path) const;

  // The place of the entries of the sources in `folder` ("photos/"; "" is the working directory). Nothing if the folder
  // can't be resolved. It need not exist.
  std::optional<std::string> MirrorOf(const std::string& folder) const;
};

// The store that the environment names when this function is first called; null if it names none:
//   TAVITHUMB_STORE=FOLDER   an existing folder, absolute and without links
//   TAVITHUMB_STORE_ALL=1    for all sources; otherwise, for those whose own folder can't be written
const Store* ConfiguredStore();

// Whether this process may store there: nobody but root, the store's owner and their groups can have put links into it.
bool IsTrustedStore(const struct stat& store);

}  // namespace tavi
