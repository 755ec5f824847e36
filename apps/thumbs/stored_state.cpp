// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/stored_state.h"

#include <sys/stat.h>
#include <tavithumb/util.h>

#include <optional>
#include <string>

#include "system/paths.h"
#include "thumbs/rendering.h"

namespace tavithumb::apps {
namespace {

// One pixel of a picture that could have many was made by cropping a preview at the place of the photo.
bool IsSinglePixel(const maker::Size& size, const ThumbInfo& source) {
  return size == maker::Size{1, 1} && source.GetWidth() > 16 && source.GetHeight() > 16;
}

// What is no picture of a known type was not made by us: it stays.
bool IsBad(const std::string& path, const Request& request, const ThumbInfo& source, const Examine& examine) {
  const std::optional<maker::Content> content = examine(path);
  if (!content) return false;
  const maker::Size box = BoxOf(request.size);
  return content->format == maker::Format::kBmp || content->stored.width > box.width ||
         content->stored.height > box.height || IsSinglePixel(content->stored, source);
}

StoredState StateByTheLibrary(const std::string& path, const ThumbInfo& source) {
  return source.IsThumbUptoDate(path) ? StoredState::kGood : StoredState::kStale;
}

// What another program has stored for a video counts for every size. The library finds a new thumbnail first, which
// would hide it.
bool HasScreenshot(const Thumb& job) {
  const ThumbInfo& source = job.GetInfo();
  return IsSupportVideo(BaseName(source.GetPath())) &&
         source.IsThumbUptoDate(file::GetEAPath(source.GetPath(), source.GetCinevoThumbEAName()));
}

}  // namespace

StoredState StateOfStored(const Request& request, const Thumb& job, const Examine& examine) {
  if (HasScreenshot(job)) return StoredState::kGood;
  const ThumbInfo& source = job.GetInfo();
  const std::string path = job.GetOnlineOutputDest();
  struct stat stored = {};
  if (stat(path.c_str(), &stored) != 0) return StoredState::kMissing;
  if (!CanRenderAndStore(request, source)) return StateByTheLibrary(path, source);
  struct stat photo = {};
  if (stat(source.GetPath().c_str(), &photo) != 0 || photo.st_mtim.tv_sec != stored.st_mtim.tv_sec) {
    return StoredState::kStale;
  }
  return IsBad(path, request, source, examine) ? StoredState::kBad : StoredState::kGood;
}

bool IsGoodAnswer(const Request& request, const Thumb& job, const Examine& examine) {
  return job.GetOutputFile() != job.GetOnlineOutputDest() || StateOfStored(request, job, examine) == StoredState::kGood;
}

}  // namespace tavithumb::apps
