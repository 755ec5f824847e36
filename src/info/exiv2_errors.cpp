// SPDX-License-Identifier: GPL-3.0-or-later
#include "info/exiv2_errors.h"

namespace tavithumb {
namespace {

bool IsContainer(const Exiv2::Image& image) {
#ifdef EXV_ENABLE_BMFF
  if (image.imageType() == Exiv2::ImageType::bmff) return true;
#endif
  // If asked for its MIME type before its metadata is read, a TIFF-based raw file mistakes a preview for its picture.
  if (image.imageType() == Exiv2::ImageType::tiff) return false;
  return image.mimeType().rfind("video/", 0) == 0;
}

}  // namespace

int Exiv2Code(const Exiv2::Error& error) {
  // Later releases add the same offset to all error numbers.
  constexpr int step = static_cast<int>(Exiv2::ErrorCode::kerDataSourceOpenFailed) - kExiv2CannotOpen;
  return static_cast<int>(error.code()) - step;
}

void RefuseContainers(const Exiv2::Image& image, const std::string& path) {
  if (IsContainer(image)) throw Exiv2::Error(Exiv2::ErrorCode::kerFileContainsUnknownImageType, path);
}

}  // namespace tavithumb
