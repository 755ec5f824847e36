// SPDX-License-Identifier: GPL-3.0-or-later
#include "tavithumb/thumb_info.h"

#include <utime.h>

#include <algorithm>

#include "support/quarter_turns.h"
#include "tavithumb/error.h"

namespace tavithumb {
namespace {

ThumbDimension Swapped(const ThumbDimension& box) {
  return {box.height, box.width};
}

}  // namespace

std::mutex ThumbInfo::exiv2_mutex_;

ThumbInfo::ThumbInfo(const std::string& path, const std::string& size, const ThumbDimension& dimension)
    : path_(path), size_(size), dimension_(dimension) {
  if (stat64(path_.c_str(), &stat_) != 0) throw Error(601, "Can't stat " + path_);
}

void ThumbInfo::SetMimeType(const std::string& mimeType) {
  mimeType_ = mimeType;
  good_ = true;
  heic_ = false;
}

void ThumbInfo::SetHeic() {
  mimeType_.clear();
  good_ = false;
  heic_ = true;
}

std::string ThumbInfo::GetOutputMimeType() const {
  if (mimeType_ == "image/gif" && enableGIF_ && !cropMode_) return "image/gif";
  if (mimeType_ == "image/png") return "image/png";
  return "image/jpeg";
}

std::string ThumbInfo::GetOutputExtension() const {
  const std::string type = GetOutputMimeType();
  if (type == "image/gif") return ".gif";
  if (type == "image/png") return ".png";
  return ".jpg";
}

bool ThumbInfo::IsWebAcceptable() const {
  return mimeType_ == "image/jpeg" || mimeType_ == "image/png" || mimeType_ == "image/gif" ||
         mimeType_ == "image/x-ms-bmp";
}

ThumbDimension ThumbInfo::GetTargetDimension() const {
  const bool sideways = (AddTurns(rotate_, userRotate_) & 1) != 0;
  const ThumbDimension box = sideways ? Swapped(dimension_) : dimension_;
  if (width_ == 0 || height_ == 0) return box;
  return {std::min(width_, box.width), std::min(height_, box.height)};
}

bool ThumbInfo::IsNeedConvert() const {
  if (mimeType_ == "image/gif" && !enableGIF_) return true;
  if (!IsWebAcceptable()) return true;
  if (AddTurns(rotate_, userRotate_) != 0) return true;
  if (size_ == "large") return width_ * height_ >= LARGE_ORIG_THRESHOLD;
  return width_ > dimension_.width || height_ > dimension_.height;
}

bool ThumbInfo::IsThumbUptoDate(const std::string& thumbPath) const {
  struct stat64 thumb = {};
  return stat64(thumbPath.c_str(), &thumb) == 0 && stat_.st_mtime <= thumb.st_mtime;
}

int ThumbInfo::UpdateAMTime(const std::string& targetPath) const {
  const utimbuf times{stat_.st_atime, stat_.st_mtime};
  return utime(targetPath.c_str(), &times);
}

}  // namespace tavithumb
