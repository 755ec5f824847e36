// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/facts.h"

#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "system/paths.h"
#include "thumbs/answer.h"
#include "thumbs/facts_in_bounds.h"

namespace tavithumb::apps {
namespace {

// The Exif value, 1 to 8, of this rotation and mirroring.
int OrientationOf(const ThumbInfo& info) {
  const auto& mappings = ThumbInfo::rotateFlopMappingList_;
  const auto found = std::find(mappings.begin(), mappings.end(), std::make_pair(info.GetRotate(), info.GetFlop()));
  return static_cast<int>(found - mappings.begin()) + 1;
}

std::uint64_t PixelsOf(const Picture& picture) {
  return std::uint64_t{picture.width} * picture.height;
}

std::optional<Picture> LargestPreview(const ThumbInfo& source, const std::vector<PreviewCandidate>& previews) {
  std::optional<Picture> largest;
  for (const PreviewCandidate& preview : previews) {
    const Picture picture = {preview.mimeType, preview.width, preview.height};
    if (!source.HasFittingPreview({preview})) continue;
    if (!largest || PixelsOf(picture) > PixelsOf(*largest)) largest = picture;
  }
  return largest;
}

const char* NameOf(ColourSpace colourSpace) {
  if (colourSpace == ColourSpace::SRGB) return "sRGB";
  return colourSpace == ColourSpace::ADOBE_RGB ? "AdobeRGB" : "";
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
  ThumbInfo info(path, "original", Thumb::strThumbSizeMap_.at("original"));
  PictureDetails details;
  ReadInBounds([&] { details = info.ExtractImgInfoAndDetails(); });
  Facts facts;
  facts.isVideo = IsSupportVideo(BaseName(path));
  facts.mimeType = SourceMimeType(info);
  facts.width = info.GetWidth();
  facts.height = info.GetHeight();
  facts.orientation = OrientationOf(info);
  facts.quarterTurns = info.GetRotate();
  facts.isMirrored = info.GetFlop();
  facts.isHeic = info.IsHeic();
  facts.preview = LargestPreview(info, details.previews);
  facts.colourSpace = NameOf(details.colourSpace);
  facts.cameraMake = details.cameraMake;
  facts.cameraModel = details.cameraModel;
  facts.timeTaken = details.timeTaken;
  return facts;
}

}  // namespace tavithumb::apps
