// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/source_facts.h"

#include "thumbs/error_codes.h"
#include "thumbs/facts_in_bounds.h"

namespace tavithumb::apps {

SourceFacts::SourceFacts(const std::string& path) : info_(path, "original", Thumb::strThumbSizeMap_.at("original")) {
  stat(path.c_str(), &record_);
  try {
    ReadInBounds([this] { readDetails_ = info_.ExtractImgInfoForDetails(); });
  } catch (const Error& error) {
    if (error.Code() != kNoFacts) throw;
    details_.emplace();
  }
}

const PictureDetails& SourceFacts::Details() const {
  if (!details_) ReadInBounds([this] { details_ = readDetails_(); });
  return *details_;
}

bool SourceFacts::AreCurrent() const {
  struct stat now = {};
  return stat(info_.GetPath().c_str(), &now) == 0 && now.st_dev == record_.st_dev && now.st_ino == record_.st_ino &&
         now.st_size == record_.st_size && now.st_mtim.tv_sec == record_.st_mtim.tv_sec &&
         now.st_mtim.tv_nsec == record_.st_mtim.tv_nsec;
}

}  // namespace tavithumb::apps
