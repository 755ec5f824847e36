// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/source_facts.h"

#include <functional>

#include "thumbs/error_codes.h"
#include "thumbs/facts_in_bounds.h"

namespace tavithumb::apps {
namespace {

void Read(const std::function<void()>& read) {
  try {
    ReadInBounds(read);
  } catch (const Error& error) {
    if (error.Code() != kNoFacts) throw;
  }
}

}  // namespace

SourceFacts::SourceFacts(const std::string& path) : info_(path, "original", Thumb::strThumbSizeMap_.at("original")) {
  stat(path.c_str(), &record_);
  Read([this] { info_.ExtractImgInfo(false); });
}

const PictureDetails& SourceFacts::Details() const {
  if (!details_) {
    details_.emplace();
    Read([this] { details_ = ThumbInfo(info_).ExtractImgInfoAndDetails(); });
  }
  return *details_;
}

bool SourceFacts::AreCurrent() const {
  struct stat now = {};
  return stat(info_.GetPath().c_str(), &now) == 0 && now.st_dev == record_.st_dev && now.st_ino == record_.st_ino &&
         now.st_size == record_.st_size && now.st_mtim.tv_sec == record_.st_mtim.tv_sec &&
         now.st_mtim.tv_nsec == record_.st_mtim.tv_nsec;
}

}  // namespace tavithumb::apps
