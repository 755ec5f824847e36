// SPDX-License-Identifier: GPL-3.0-or-later
// Reads what Exiv2 knows of a picture besides its type, size and orientation.
#include "info/picture_details.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace tavithumb {
namespace {

constexpr std::size_t kMostPreviewBytes = std::size_t{16} * 1048576;
constexpr std::size_t kMostTextBytes = 64;

// "" if there is none.
std::string TextOf(const Exiv2::ExifData& exif, const char* key) {
  const auto found = exif.findKey(Exiv2::ExifKey(key));
  return found == exif.end() ? "" : found->toString();
}

// Cameras pad their names with spaces and zeros.
std::string NameOf(const Exiv2::ExifData& exif, const char* key) {
  std::string name = TextOf(exif, key).substr(0, kMostTextBytes);
  name.resize(std::min(name.find('\0'), name.size()));
  name.resize(name.find_last_not_of(' ') + 1);
  return name;
}

ColourSpace ColourSpaceOf(const Exiv2::ExifData& exif) {
  const std::string space = TextOf(exif, "Exif.Photo.ColorSpace");
  if (space == "1") return ColourSpace::SRGB;
  if (space == "2") return ColourSpace::ADOBE_RGB;
  const bool isUncalibrated = space == "65535";
  const bool isMarked = isUncalibrated && TextOf(exif, "Exif.Iop.InteroperabilityIndex").compare(0, 3, "R03") == 0;
  return isMarked ? ColourSpace::ADOBE_RGB : ColourSpace::UNKNOWN;
}

// Exif has "2024:05:01 12:30:00", or zeros or spaces for a time that the camera did not know.
std::string TimeTaken(const Exiv2::ExifData& exif) {
  static const std::string form = "0000:00:00 00:00:00";
  std::string time = TextOf(exif, "Exif.Photo.DateTimeOriginal").substr(0, form.size());
  const bool hasForm =
      time.size() == form.size() && std::equal(time.begin(), time.end(), form.begin(), [](char a, char b) {
        return b == '0' ? std::isdigit(static_cast<unsigned char>(a)) != 0 : a == b;
      });
  if (!hasForm || time.compare(0, 4, "0000") == 0) return "";
  time[4] = time[7] = '-';
  time[10] = 'T';
  return time;
}

// A program that has cropped, resized or rotated the picture may have kept the previews.
bool HasSizeOf(const Exiv2::Image& image) {
  const std::string width = TextOf(image.exifData(), "Exif.Photo.PixelXDimension");
  const std::string height = TextOf(image.exifData(), "Exif.Photo.PixelYDimension");
  return (width.empty() || width == std::to_string(image.pixelWidth())) &&
         (height.empty() || height == std::to_string(image.pixelHeight()));
}

// Where the picture is not stored upright, its previews may be. A quarter turn shows in their shape, anything else only
// if they have an orientation of their own.
bool AreStoredAlike(const Exiv2::Image& image, std::uint32_t orientationIndex) {
  const std::string ofPreview = TextOf(image.exifData(), "Exif.Thumbnail.Orientation");
  if (!ofPreview.empty()) return ofPreview == std::to_string(orientationIndex + 1);
  const int width = image.pixelWidth();
  const int height = image.pixelHeight();
  const bool isSquare = std::abs(width - height) <= std::max(width, height) / 50;
  return orientationIndex == 0 || (orientationIndex >= 4 && !isSquare);
}

std::vector<std::vector<std::uint8_t>> JpegPreviews(const Exiv2::PreviewManager& manager,
                                                    const Exiv2::PreviewPropertiesList& list) {
  std::vector<std::vector<std::uint8_t>> previews;
  std::size_t left = kMostPreviewBytes;
  for (const Exiv2::PreviewProperties& properties : list) {
    if (properties.mimeType_ != "image/jpeg" || properties.size_ > left) continue;
    const Exiv2::PreviewImage preview = manager.getPreviewImage(properties);
    const auto size = static_cast<std::size_t>(preview.size());
    if (size == 0 || size > left) continue;
    left -= size;
    previews.emplace_back(preview.pData(), preview.pData() + size);
  }
  return previews;
}

}  // namespace

PictureDetails DetailsOf(const Exiv2::Image& image, std::uint32_t orientationIndex) {
  const Exiv2::ExifData& exif = image.exifData();
  const Exiv2::PreviewManager manager(image);
  const Exiv2::PreviewPropertiesList list = manager.getPreviewProperties();
  PictureDetails details;
  details.previews = Candidates(list);
  const bool mayServe = image.mimeType() == "image/jpeg" && HasSizeOf(image) && AreStoredAlike(image, orientationIndex);
  if (mayServe) details.jpegPreviews = JpegPreviews(manager, list);
  details.colourSpace = ColourSpaceOf(exif);
  details.cameraMake = NameOf(exif, "Exif.Image.Make");
  details.cameraModel = NameOf(exif, "Exif.Image.Model");
  details.timeTaken = TimeTaken(exif);
  return details;
}

}  // namespace tavithumb
