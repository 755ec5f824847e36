// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/stored_files.h"

#include <sys/stat.h>
#include <tavithumb/util.h>

#include <filesystem>
#include <system_error>

namespace tavithumb::apps {

StoredFiles::StoredFiles(const std::string& source) {
  const std::string entry = file::GetEAPath(source, "thumbnail");
  if (entry.empty()) return;
  std::error_code missing;
  for (const auto& stored : std::filesystem::directory_iterator(file::Dirname(entry), missing)) {
    files_.insert(IdentityOf(stored.path()));
  }
}

bool StoredFiles::Hold(const std::string& path) const {
  return files_.count(IdentityOf(path)) != 0;
}

StoredFiles::Identity StoredFiles::IdentityOf(const std::string& path) {
  struct stat record = {};
  stat(path.c_str(), &record);
  return {record.st_dev, record.st_ino, record.st_ctim.tv_sec, record.st_ctim.tv_nsec};
}

}  // namespace tavithumb::apps
