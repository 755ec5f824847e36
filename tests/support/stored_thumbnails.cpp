// SPDX-License-Identifier: GPL-3.0-or-later
#include "stored_thumbnails.h"

#include <filesystem>

#include "pictures.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::test {

const std::vector<StoredThumbnail>& GoodStaleAndBadThumbnails() {
  static const std::vector<StoredThumbnail> all = {
      {"good", "jpg:", "120x80", kPhotoTime, false},
      {"smaller than its box", "jpg:", "60x40", kPhotoTime, false},
      {"of another type that browsers show", "png:", "120x80", kPhotoTime, false},
      {"older than the photo", "jpg:", "120x80", kPhotoTime - 1, true},
      {"of a newer photo that was replaced by an older one", "jpg:", "120x80", kPhotoTime + 1, true},
      {"a BMP", "bmp:", "120x80", kPhotoTime, true},
      {"wider than its box", "jpg:", "121x80", kPhotoTime, true},
      {"higher than its box", "jpg:", "80x121", kPhotoTime, true},
      {"a single pixel", "jpg:", "1x1", kPhotoTime, true},
  };
  return all;
}

void MakePhotoForEverybody(const std::string& path) {
  RunTool({"/usr/bin/convert", "-size", "900x600", "-seed", "1", "plasma:red-blue", "-quality", "100", path});
  SetTimes(path, kPhotoTime, kPhotoTime);
  fs::permissions(path, fs::perms::all);
  fs::permissions(fs::path(path).parent_path(), fs::perms::all);
}

void Plant(const StoredThumbnail& thumbnail, const std::string& path) {
  const fs::path folder = fs::path(path).parent_path();
  fs::create_directories(folder);
  fs::permissions(folder.parent_path(), fs::perms::all);
  fs::permissions(folder, fs::perms::all);
  RunTool({"/usr/bin/convert", "-size", thumbnail.size, "xc:green", thumbnail.type + path});
  SetTimes(path, thumbnail.time, thumbnail.time);
}

}  // namespace tavithumb::test
