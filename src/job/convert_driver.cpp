// SPDX-License-Identifier: GPL-3.0-or-later
// Answers a request by the lookup steps in a fixed order of preference, and makes sizes ahead of time.
#include <algorithm>
#include <iterator>

#include "info/size_names.h"
#include "support/log.h"
#include "tavithumb/libtavithumb.h"

namespace tavithumb {

void Thumb::SetRequest(const std::string& sizeName) {
  info_.size_ = sizeName;
  info_.dimension_ = strThumbSizeMap_.at(sizeName);
}

void Thumb::SetRequest(const ThumbDimension& box) {
  info_.size_ = kCustomSizeName;
  info_.dimension_ = box;
}

void Thumb::SetFacts(const ThumbInfo& facts) {
  info_.mimeType_ = facts.mimeType_;
  info_.width_ = facts.width_;
  info_.height_ = facts.height_;
  info_.rotate_ = facts.rotate_;
  info_.flop_ = facts.flop_;
  info_.good_ = facts.good_;
  info_.heic_ = facts.heic_;
}

std::string Thumb::CalcOutputFile() {
  ReadFacts();
  return CalcFromFacts();
}

std::string Thumb::CalcFromFacts() {
  if (info_.GetSize() == "original") {
    if (!info_.IsWebAcceptable()) return "";
    type_ = OUTPUT_ORIGINAL;
    outputFile_ = srcPath_;
    return outputFile_;
  }
  return SetOutFirst() ? outputFile_ : "";
}

bool Thumb::SetOutStored() {
  if (tryAlbumexEA_ && (SetOutAlbumexEA() || SetOutAlbumexOldEA())) return true;
  if (tryBrovixEA_ && SetOutBrovixEA()) return true;
  if (isVideo_ && SetOutCinevoEA()) return true;
  return avatar_ && SetOutAvatar();
}

// The lookup steps in their order; the first that finds a file wins.
bool Thumb::SetOutFirst() {
  if (SetOutStored()) return true;
  if (SetOutFromEXIFPreview()) return true;
  if (acceptHeic_ && info_.IsHeic() && SetOutOriginalImage()) return true;
  if (!noOnline_ && SetOutOnline()) return true;
  // The source itself, if online mode declined because nothing has to be converted; never just because a conversion
  // failed.
  return (!noOriginalFallback_ || type_ == OUTPUT_ORIGINAL) && SetOutOriginalImage();
}

// A job continues without facts, but not with a source that is damaged or can't be opened.
void Thumb::ReadFacts() {
  if (isVideo_) return;
  try {
    info_.ExtractImgInfo(true);
  } catch (const Error& error) {
    if (error.Code() != 602) throw Error(error);
  }
}

std::string Thumb::CalcOutputFile(const std::string& sizeName) {
  for (const std::string& name : GetSizesToTry(sizeName)) {
    SetRequest(name);
    if (!CalcOutputFile().empty() || !fallbackSmaller_) return outputFile_;
  }
  return "";
}

std::vector<std::string> Thumb::GetSizesToTry(const std::string& sizeName) const {
  const auto first = std::find(size_vec.begin(), size_vec.end(), sizeName);
  if (first == size_vec.end()) return {};
  return {first, fallbackSmaller_ ? size_vec.end() : std::next(first)};
}

int Thumb::Convert(std::initializer_list<std::string> sizeNames) {
  int count = 0;
  for (const std::string& name : sizeNames) {
    try {
      SetRequest(name);
      count += SetOutOnline() ? 1 : 0;
    } catch (...) {
      syslog(LOG_ERR, TAVITHUMB_LOG("Unknown Internal Error"), "libtavithumb", 95, "Convert");
    }
  }
  return count;
}

int Thumb::Convert(std::initializer_list<ThumbDimension> boxes) {
  int count = 0;
  for (const ThumbDimension& box : boxes) {
    try {
      SetRequest(box);
      count += SetOutOnline() ? 1 : 0;
    } catch (...) {
      syslog(LOG_ERR, TAVITHUMB_LOG("Unknown Internal Error"), "libtavithumb", 113, "Convert");
    }
  }
  return count;
}

bool Thumb::ConvertAll() {
  return Convert({"small", "medium", "big", "large", "xlarge"}) != 0;
}

}  // namespace tavithumb
