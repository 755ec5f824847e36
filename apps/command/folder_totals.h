// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

#include "system/folder.h"
#include "thumbs/source.h"

namespace tavithumb::apps::command {

// Whether `path` leads to a folder.
bool IsFolder(const std::string& path);

struct StoredTotal {
  std::uint64_t files = 0;
  std::uint64_t stale = 0;  // of these, those that are older than their source
  std::uint64_t gone = 0;   // and those whose source is gone
  std::uint64_t disk = 0;   // bytes that they take there
};

struct FileTotal {
  std::uint64_t files = 0;
  std::uint64_t disk = 0;
};

// Adds up what is in a folder and in all folders below it, without following links.
class FolderTotals {
 public:
  using Names = std::pair<std::string, std::string>;

  // The thumbnails stored in it and, of what is in it, in the store: by consumer and size.
  std::map<Names, StoredTotal> StoredFor(const std::string& path);

  // Its files without the thumbnails: by kind (image, video or other) and, of the first two, extension.
  std::map<Names, FileTotal> FilesIn(const std::string& path);

  // Whether all folders could be read. The others have been reported.
  bool IsComplete() const { return isComplete_; }

  // The totals of the folder as a line of JSON.
  std::string JsonLineOf(const std::string& path, const nlohmann::ordered_json& totals) const;

 private:
  using Visit = std::function<void(const Folder& folder)>;

  void Walk(const Folder& folder, const Visit& visit);
  void AddThumbnails(const Folder& eaFolder, const std::function<Source(const std::string&)>& sourceOf);
  void AddFiles(const Folder& folder);
  std::vector<std::string> NamesOf(const Folder& folder);

  bool isComplete_ = true;
  std::map<Names, StoredTotal> stored_;
  std::map<Names, FileTotal> files_;
};

}  // namespace tavithumb::apps::command
