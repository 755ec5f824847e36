// SPDX-License-Identifier: GPL-3.0-or-later
// Reads type, size and orientation of a picture with Exiv2.
#include <exiv2/exiv2.hpp>

#include "info/exiv2_errors.h"
#include "info/picture_details.h"
#include "support/log.h"
#include "support/path.h"
#include "tavithumb/error.h"
#include "tavithumb/thumb_info.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

// The index of an orientation value in the mapping list; the user of the list checks the range.
std::uint32_t IndexOf(const Exiv2::Exifdatum& orientation) {
  return static_cast<std::uint32_t>(std::stoi(orientation.toString())) - 1;
}

// Built once, under the lock: parsing a key's name costs more than looking up the key.
const std::vector<Exiv2::ExifKey>& MakerNoteKeys() {
  static const std::vector<Exiv2::ExifKey> keys(ThumbInfo::orientationKeyList_.begin(),
                                                ThumbInfo::orientationKeyList_.end());
  return keys;
}

// Cameras that set the standard tag to "normal" may write the true rotation to a maker note.
std::uint32_t OrientationIndex(const Exiv2::ExifData& exif) {
  const auto standard = exif.findKey(Exiv2::ExifKey(ThumbInfo::stdOrientationKey));
  if (standard == exif.end()) return 0;
  if (standard->toString() != "1") return IndexOf(*standard);
  for (const Exiv2::ExifKey& key : MakerNoteKeys()) {
    const auto makerNote = exif.findKey(key);
    if (makerNote != exif.end()) return IndexOf(*makerNote);
  }
  return 0;
}

bool IsHeifName(const std::string& path) {
  const std::string extension = file::GetFileExt(path);
  return extension == "heif" || extension == "heic";
}

[[noreturn]] void FailWith(const Exiv2::Error& error) {
  const int code = Exiv2Code(error);
  if (code == kExiv2CannotOpen) throw Error(603, error.what());
  if (code == kExiv2UnknownType) throw Error(602, error.what());
  syslog(LOG_ERR, TAVITHUMB_LOG("Exiv2 exception: E%d %s"), "thumb_info", 129, "ExtractImgInfo", code, error.what());
  throw Error(601, error.what());
}

}  // namespace

const std::string ThumbInfo::stdOrientationKey = "Exif.Image.Orientation";

const std::vector<std::string> ThumbInfo::orientationKeyList_ = {
    "Exif.Panasonic.Rotation",      "Exif.MinoltaCs5D.Rotation",    "Exif.MinoltaCs5D.Rotation2",
    "Exif.MinoltaCs7D.Rotation",    "Exif.Sony1MltCsA100.Rotation", "Exif.Sony1Cs.Rotation",
    "Exif.Sony2Cs.Rotation",        "Exif.Sony1Cs2.Rotation",       "Exif.Sony2Cs2.Rotation",
    "Exif.Sony1MltCsA100.Rotation",
};

const std::vector<std::pair<std::int32_t, bool>> ThumbInfo::rotateFlopMappingList_ = {
    {0, false}, {0, true}, {2, false}, {2, true}, {1, true}, {1, false}, {3, true}, {3, false},
};

void ThumbInfo::ExtractImgInfo(bool withPreview) {
  Extract([&] { return ReadWithExiv2(withPreview); });
}

std::vector<PreviewCandidate> ThumbInfo::ExtractImgInfoAndPreviews() {
  std::vector<PreviewCandidate> previews;
  Extract([&] {
    const std::lock_guard<std::mutex> lock(exiv2_mutex_);
    const std::unique_ptr<Exiv2::Image> image = ReadWithExiv2();
    previews = Candidates(Exiv2::PreviewManager(*image).getPreviewProperties());
    return OrientationIndex(image->exifData());
  });
  return previews;
}

std::function<PictureDetails()> ThumbInfo::ExtractImgInfoForDetails() {
  std::shared_ptr<const Exiv2::Image> image;
  std::uint32_t orientation = 0;
  Extract([&] {
    const std::lock_guard<std::mutex> lock(exiv2_mutex_);
    image.reset(ReadWithExiv2().release());
    return orientation = OrientationIndex(image->exifData());
  });
  if (!image) return [] { return PictureDetails(); };
  return [image, orientation] {
    const std::lock_guard<std::mutex> lock(exiv2_mutex_);
    try {
      return DetailsOf(*image, orientation);
    } catch (const Exiv2::Error& error) {
      FailWith(error);
    }
  };
}

PictureDetails ThumbInfo::ExtractImgInfoAndDetails() {
  return ExtractImgInfoForDetails()();
}

void ThumbInfo::Extract(const std::function<std::uint32_t()>& read) {
  if (IsSupportVideo(Basename(path_))) return;
  try {
    SetOrientation(read());
    good_ = true;
  } catch (const Exiv2::Error& error) {
    const bool isUnknown = Exiv2Code(error) == kExiv2UnknownType;
    if (isUnknown && IsHeifName(path_)) CheckAndGetHeif();
    if (!isUnknown || !IsHeic()) FailWith(error);
  }
}

std::uint32_t ThumbInfo::ReadWithExiv2(bool withPreview) {
  const std::lock_guard<std::mutex> lock(exiv2_mutex_);
  const std::unique_ptr<Exiv2::Image> image = ReadWithExiv2();
  if (withPreview) ExtractEXIFPreviewInfo(image);
  return OrientationIndex(image->exifData());
}

std::unique_ptr<Exiv2::Image> ThumbInfo::ReadWithExiv2() {
  std::unique_ptr<Exiv2::Image> image(Exiv2::ImageFactory::open(path_, true).release());
  RefuseContainers(*image, path_);
  image->readMetadata();
  mimeType_ = image->mimeType();
  width_ = static_cast<std::uint32_t>(image->pixelWidth());
  height_ = static_cast<std::uint32_t>(image->pixelHeight());
  return image;
}

void ThumbInfo::SetOrientation(std::uint32_t index) {
  const auto& [rotate, flop] = rotateFlopMappingList_[index < rotateFlopMappingList_.size() ? index : 0];
  rotate_ = rotate;
  flop_ = flop;
}

}  // namespace tavithumb
