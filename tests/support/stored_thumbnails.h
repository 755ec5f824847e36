// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>
#include <string>
#include <vector>

namespace tavithumb::test {

// What may be found in the place of a thumbnail of 120 x 80, and whether a program has to make that again.
struct StoredThumbnail {
  std::string what;
  std::string type;  // a prefix for ImageMagick
  std::string size;
  std::time_t time;
  bool isMadeAgain;
};

// Of a photo of kPhotoTime.
inline constexpr std::time_t kPhotoTime = 1700000000;
const std::vector<StoredThumbnail>& GoodStaleAndBadThumbnails();

// A photo of 900 x 600, of kPhotoTime, that everybody may read and store thumbnails of.
void MakePhotoForEverybody(const std::string& path);

// Green, as the entry at `path`, which everybody may replace.
void Plant(const StoredThumbnail& thumbnail, const std::string& path);

}  // namespace tavithumb::test
