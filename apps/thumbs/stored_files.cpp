// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/stored_files.h"

#include <sys/stat.h>

#include <filesystem>
#include <system_error>

#include "thumbs/store.h"

namespace tavithumb::apps {

StoredFiles::StoredFiles(const std::string& source) {
  for (const std::string& folder : EntryFoldersOf(source)) {
    std::error_code missing;
    for (const auto& stored : std::filesystem::directory_iterator(folder, missing)) {
      files_.insert(IdentityOf(stored.path()));
    }
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
