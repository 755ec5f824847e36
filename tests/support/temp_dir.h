// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>
#include <string>
#include <vector>

namespace tavithumb::test {

// A new empty directory, removed with all its content.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path_; }
  // The full path of an entry, which need not exist.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Whole files; parent directories are created.
void WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);
bool Exists(const std::string& path);

// Access and modification time, seconds since the epoch.
void SetTimes(const std::string& path, std::time_t access, std::time_t modification);
std::time_t ModificationTime(const std::string& path);

// The names in a directory (not recursive), sorted; empty if it does not exist.
std::vector<std::string> Names(const std::string& directory);

// Files with one of the library's temporary names in /tmp and /var/tmp ("thumb.*", "tavithumb_*",
// "convert_thumbnail_*"), full paths, sorted: list them before and after.
std::vector<std::string> TemporaryFiles();

// Those of this process: other programs use these names at the same time, so only the ones with this process's id
// count.
std::vector<std::string> OwnTemporaryFiles();

}  // namespace tavithumb::test
