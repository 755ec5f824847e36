// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <ctime>
#include <set>
#include <string>
#include <tuple>

namespace tavithumb::apps {

// Records the files now stored as thumbnails of a source, to tell thumbnails made later from them.
class StoredFiles {
 public:
  explicit StoredFiles(const std::string& source);
  bool Hold(const std::string& path) const;

 private:
  using Identity = std::tuple<dev_t, ino_t, time_t, long>;

  static Identity IdentityOf(const std::string& path);

  std::set<Identity> files_;
};

}  // namespace tavithumb::apps
