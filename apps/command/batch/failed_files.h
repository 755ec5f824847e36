// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "system/file_descriptor.h"

namespace tavithumb::apps::command {

// The files that failed in earlier runs because of what is in them, so that they need not be tried again until they
// change. A file of records keeps them from one run to the next; without it, a run knows those of its own.
class FailedFiles {
 public:
  // A version of a file, and how its thumbnails are made.
  using Version = std::array<std::uint64_t, 5>;

  // The file of records is made where it does not exist, only for its owner. "" for none. With `forgets`, those of
  // earlier runs are forgotten.
  FailedFiles(const std::string& path, bool forgets);

  // Nothing if the file is not there.
  static std::optional<Version> VersionOf(const std::string& path, bool byLibrary);

  bool Has(const Version& version) const { return versions_.count(version) != 0; }
  void Add(const Version& version);

  // Where the current user's programs keep such records: "" if there is no such place.
  static std::string UsualPath();

 private:
  void Read();

  FileDescriptor file_;
  std::set<Version> versions_;
};

}  // namespace tavithumb::apps::command
