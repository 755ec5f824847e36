// SPDX-License-Identifier: GPL-3.0-or-later
// The names under which each consumer looks for its thumbnails in the EA directory.
#include <map>

#include "info/size_names.h"
#include "support/quarter_turns.h"
#include "support/temporary_names.h"
#include "tavithumb/thumb_info.h"

namespace tavithumb {
namespace {

// "large" and "xlarge" share a thumbnail.
const std::map<std::string, std::string> sizeLetterMap = {
    {"small", "S"}, {"medium", "M"}, {"big", "B"}, {"large", "XL"}, {"xlarge", "XL"},
};

}  // namespace

std::string ThumbInfo::GetRotateSuffix() const {
  const std::int32_t turns = AddTurns(rotate_, userRotate_) % 4;
  return turns == 0 ? "" : "_r" + std::to_string(turns);
}

std::string ThumbInfo::GetXString() const {
  const ThumbDimension target = GetTargetDimension();
  return std::to_string(target.width) + "x" + std::to_string(target.height);
}

std::string ThumbInfo::GetAlbumexThumbEAName() const {
  return "TAVIPHOTO_THUMB_" + sizeLetterMap.at(size_) + GetOutputExtension();
}

std::string ThumbInfo::GetAlbumexOldThumbEAName() const {
  return "TAVIPHOTO:THUMB_" + sizeLetterMap.at(size_) + GetOutputExtension();
}

std::string ThumbInfo::GetBrovixThumbEAName() const {
  const std::string size = size_ == kCustomSizeName ? GetXString() : sizeLetterMap.at(size_);
  return "TAVIFILE_THUMB_" + size + GetRotateSuffix() + GetOutputExtension();
}

std::string ThumbInfo::GetBrovixTmpThumbEAName() const {
  return WorkEntryName(GetRotateSuffix(), GetOutputExtension());
}

std::string ThumbInfo::GetAvatarThumbEAName() const {
  return "TAVIAVATAR_" + GetXString() + GetRotateSuffix() + GetOutputExtension();
}

std::string ThumbInfo::GetCinevoThumbEAName() const {
  return "TAVIVIDEO_VIDEO_SCREENSHOT.jpg";
}

}  // namespace tavithumb
