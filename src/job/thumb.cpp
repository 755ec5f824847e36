// SPDX-License-Identifier: GPL-3.0-or-later
// The job's lifetime, its options, and the answers that need no tool: stored thumbnails, the source itself and the
// caller's temporary file.
#include <unistd.h>

#include <limits>

#include "support/path.h"
#include "tavithumb/libtavithumb.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

constexpr ThumbDimension kUnboundedBox = {std::numeric_limits<std::int32_t>::max(),
                                          std::numeric_limits<std::int32_t>::max()};

}  // namespace

const std::map<std::string, ThumbDimension> Thumb::strThumbSizeMap_ = {
    {"small", {120, 120}},   {"medium", {360, 360}},   {"big", {640, 640}},
    {"large", {1280, 1280}}, {"xlarge", {1280, 1280}}, {"original", kUnboundedBox},
};

const std::vector<std::string> Thumb::size_vec = {"original", "xlarge", "large", "big", "medium", "small"};

Thumb::Thumb(const std::string& path, int options, bool acceptHeic)
    : srcPath_(path),
      isVideo_(IsSupportVideo(Basename(path))),
      acceptHeic_(acceptHeic),
      info_(path, "original", kUnboundedBox) {
  SetOption(options);
}

Thumb::~Thumb() {
  const std::string& preview = info_.exifPreviewTmpPath_;
  if (!preview.empty()) unlink(preview.c_str());
}

void Thumb::SetOption(int options) {
  const bool avatar = (options & OPT_AVATAR) != 0;
  noOnline_ = (options & OPT_NO_CONVERT) != 0 || isVideo_;
  tryAlbumexEA_ = (options & OPT_ALBUMEX_EA) != 0 && !avatar;
  tryBrovixEA_ = (options & OPT_BROVIX_EA) != 0 && !avatar;
  avatar_ = avatar;
  optEnableGIF_ = (options & OPT_ENABLE_GIF) != 0;
  noOriginalFallback_ = true;
  fallbackSmaller_ = (options & OPT_FALLBACK_SMALLER) != 0 && !isVideo_;
  info_.enableGIF_ = optEnableGIF_;
  info_.cropMode_ = avatar;
}

void Thumb::Rotate(int quarterTurns) {
  info_.userRotate_ = quarterTurns;
}

bool Thumb::SetOutAlbumexEA() {
  return SetOutStoredEA(info_.GetAlbumexThumbEAName(), OUTPUT_ALBUMEX);
}

bool Thumb::SetOutAlbumexOldEA() {
  return SetOutStoredEA(info_.GetAlbumexOldThumbEAName(), OUTPUT_ALBUMEX);
}

bool Thumb::SetOutCinevoEA() {
  return SetOutStoredEA(info_.GetCinevoThumbEAName(), OUTPUT_CINEVO);
}

bool Thumb::SetOutStoredEA(const std::string& eaName, std::int32_t type) {
  outputFile_ = file::GetEAPath(srcPath_, eaName);
  if (outputFile_.empty()) return false;
  if (!info_.IsThumbUptoDate(outputFile_)) {
    outputFile_.clear();
    return false;
  }
  type_ = type;
  return true;
}

bool Thumb::SetOutBrovixEA() {
  const std::string entry = file::GetEAPath(srcPath_, info_.GetBrovixThumbEAName());
  return SetOutFreshEntry(info_.IsGood() || isVideo_ ? entry : "");
}

// Avatars count as Brovix thumbnails to the caller.
bool Thumb::SetOutAvatar() {
  return SetOutFreshEntry(file::GetEAPath(srcPath_, info_.GetAvatarThumbEAName()));
}

bool Thumb::SetOutFreshEntry(const std::string& entry) {
  if (!info_.IsThumbUptoDate(entry)) {
    outputFile_.clear();
    return false;
  }
  outputFile_ = entry;
  type_ = OUTPUT_BROVIX;
  return true;
}

bool Thumb::SetOutOriginalImage() {
  outputFile_ = srcPath_;
  return true;
}

bool Thumb::SetOutTemporary(const std::string& path) {
  outputFile_ = path;
  type_ = OUTPUT_BROVIX_VAR_TMP;
  return true;
}

}  // namespace tavithumb
