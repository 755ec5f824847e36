// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/facts.h"

#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "system/paths.h"
#include "thumbs/answer.h"
#include "thumbs/facts_in_bounds.h"

namespace tavithumb::apps {
namespace {

// Facts with the embedded preview, which is kept in a temporary file during this object's lifetime.
class FactsWithPreview {
 public:
  explicit FactsWithPreview(const std::string& path)
      : info_(path, "original", Thumb::strThumbSizeMap_.at("original")) {}
  ~FactsWithPreview() { unlink(info_.GetEXIFPreviewTmpPath().c_str()); }
  FactsWithPreview(const FactsWithPreview&) = delete;
  FactsWithPreview& operator=(const FactsWithPreview&) = delete;

  ThumbInfo& Info() { return info_; }

 private:
  ThumbInfo info_;
};

// The Exif value, 1 to 8, of this rotation and mirroring.
int OrientationOf(const ThumbInfo& info) {
  const auto& mappings = ThumbInfo::rotateFlopMappingList_;
  const auto found = std::find(mappings.begin(), mappings.end(), std::make_pair(info.GetRotate(), info.GetFlop()));
  return static_cast<int>(found - mappings.begin()) + 1;
}

}  // namespace

std::optional<Picture> MeasurePicture(const std::string& path) {
  if (path.empty()) return std::nullopt;
  try {
    ThumbInfo info(path, "original", Thumb::strThumbSizeMap_.at("original"));
    ReadInBounds([&] { info.ExtractImgInfo(false); });
    return Picture{SourceMimeType(info), info.GetWidth(), info.GetHeight()};
  } catch (const std::exception&) {  // not a picture, or its facts are invalid
    return std::nullopt;
  }
}

nlohmann::ordered_json JsonPicture(const std::optional<Picture>& picture) {
  if (!picture) return nullptr;
  return {{"mime_type", picture->mimeType}, {"width", picture->width}, {"height", picture->height}};
}

Facts ReadFacts(const std::string& path) {
  FactsWithPreview source(path);
  ThumbInfo& info = source.Info();
  ReadInBounds([&] { info.ExtractImgInfo(true); });
  Facts facts;
  facts.isVideo = IsSupportVideo(BaseName(path));
  facts.mimeType = SourceMimeType(info);
  facts.width = info.GetWidth();
  facts.height = info.GetHeight();
  facts.orientation = OrientationOf(info);
  facts.quarterTurns = info.GetRotate();
  facts.isMirrored = info.GetFlop();
  facts.isHeic = info.IsHeic();
  facts.preview = MeasurePicture(info.GetEXIFPreviewTmpPath());
  return facts;
}

}  // namespace tavithumb::apps
