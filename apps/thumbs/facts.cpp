// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/facts.h"

#include <strings.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "system/paths.h"
#include "thumbs/answer.h"
#include "thumbs/error_codes.h"
#include "thumbs/exif_details.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/film_facts.h"
#include "thumbs/known_facts.h"

namespace tavithumb::apps {
namespace {

// The Exif value, 1 to 8, of this rotation and mirroring.
int OrientationOf(std::int32_t quarterTurns, bool isMirrored) {
  const auto& mappings = ThumbInfo::rotateFlopMappingList_;
  const auto found = std::find(mappings.begin(), mappings.end(), std::make_pair(quarterTurns, isMirrored));
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

// The Exif value: the maker mirrors first and turns then, the library the other way round.
int OrientationOf(const maker::Orientation& orientation) {
  const int turns = orientation.isMirrored ? (4 - orientation.quarterTurns) % 4 : orientation.quarterTurns;
  return OrientationOf(turns, orientation.isMirrored);
}

// Where the library has read no Exif data, there may be some.
void AddExifDetails(const std::string& path, Facts* facts) {
  const ExifDetails details = ReadExifDetails(path);
  if (facts->cameraMake.empty() && facts->cameraModel.empty()) {
    facts->cameraMake = details.cameraMake;
    facts->cameraModel = details.cameraModel;
  }
  if (facts->timeTaken.empty()) facts->timeTaken = details.timeTaken;
  facts->lens = details.lens;
  facts->exposure = details.exposure;
  facts->place = details.place;
}

// Those of a source of which the library knows nothing, whose type the maker recognises. Throws SizeNotRead.
Facts FactsByMaker(const std::string& path, const std::string& type) {
  Facts facts;
  facts.mimeType = type;
  const std::optional<maker::Content> content = ExamineInChild(path);
  if (!content) throw SizeNotRead();
  facts.width = static_cast<std::uint32_t>(content->stored.width);
  facts.height = static_cast<std::uint32_t>(content->stored.height);
  facts.orientation = OrientationOf(content->orientation);
  facts.quarterTurns = ThumbInfo::rotateFlopMappingList_.at(static_cast<std::size_t>(facts.orientation) - 1).first;
  facts.isMirrored = content->orientation.isMirrored;
  facts.isHeic = type == "image/heic" || type == "image/heif";
  if (facts.isHeic || type == "image/avif") AddExifDetails(path, &facts);
  return facts;
}

nlohmann::ordered_json OrNull(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

template <typename Number>
nlohmann::ordered_json OrNull(Number number) {
  return number == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(number);
}

nlohmann::ordered_json JsonFilm(const Facts& facts) {
  return {{"width", OrNull(facts.width)}, {"height", OrNull(facts.height)}, {"duration", OrNull(facts.seconds)}};
}

Facts FactsOfVideo(const std::string& path) {
  const FilmFacts film = ReadFilmFacts(path);
  Facts facts;
  facts.isVideo = true;
  facts.width = film.width;
  facts.height = film.height;
  facts.seconds = film.seconds;
  return facts;
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

std::string CameraOf(const Facts& facts) {
  const std::string& make = facts.cameraMake;
  const std::string& model = facts.cameraModel;
  if (make.empty() || model.empty()) return make + model;
  const std::string brand = make.substr(0, make.find(' '));  // without "CORPORATION" or the like
  return strncasecmp(model.c_str(), brand.c_str(), brand.size()) == 0 ? model : make + " " + model;
}

nlohmann::ordered_json JsonFacts(const Facts& facts) {
  if (facts.isVideo) return JsonFilm(facts);
  nlohmann::ordered_json object;
  object["mime_type"] = facts.mimeType;
  object["width"] = facts.width;
  object["height"] = facts.height;
  object["orientation"] = facts.orientation;
  object["rotation"] = facts.quarterTurns;
  object["mirror"] = facts.isMirrored;
  object["heic"] = facts.isHeic;
  object["preview"] = JsonPicture(facts.preview);
  object["colour_space"] = OrNull(facts.colourSpace);
  object["taken"] = OrNull(facts.timeTaken);
  object["camera_make"] = OrNull(facts.cameraMake);
  object["camera_model"] = OrNull(facts.cameraModel);
  object["lens"] = OrNull(facts.lens);
  object["exposure"] = OrNull(facts.exposure);
  object["place"] = OrNull(facts.place);
  return object;
}

Facts ReadFacts(const std::string& path) {
  if (IsSupportVideo(BaseName(path))) return FactsOfVideo(path);
  ThumbInfo info(path, "original", Thumb::strThumbSizeMap_.at("original"));
  PictureDetails details;
  try {
    ReadInBounds([&] { details = info.ExtractImgInfoAndDetails(); });
  } catch (const Error& error) {
    const std::string type = maker::RecogniseType(path);
    if (error.Code() != kNoFacts || type.empty()) throw;
    return FactsByMaker(path, type);
  }
  Facts facts;
  facts.mimeType = SourceMimeType(info);
  facts.width = info.GetWidth();
  facts.height = info.GetHeight();
  facts.orientation = OrientationOf(info.GetRotate(), info.GetFlop());
  facts.quarterTurns = info.GetRotate();
  facts.isMirrored = info.GetFlop();
  facts.isHeic = info.IsHeic();
  facts.preview = LargestPreview(info, details.previews);
  facts.colourSpace = NameOf(details.colourSpace);
  facts.cameraMake = details.cameraMake;
  facts.cameraModel = details.cameraModel;
  facts.timeTaken = details.timeTaken;
  AddExifDetails(path, &facts);
  return facts;
}

}  // namespace tavithumb::apps
