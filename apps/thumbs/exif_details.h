// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// What the Exif data of a photo says, for people; "" for what is not known.
struct ExifDetails {
  std::string cameraMake;
  std::string cameraModel;
  std::string timeTaken;  // "YYYY-MM-DDThh:mm:ss" by the camera's clock
  std::string lens;
  std::string exposure;  // such as "1/60 s, f/1.5, ISO 250, 5.7 mm"
  std::string place;     // degrees north and east, such as "48.89250, 2.23639"
};

// Reads what the library has no use for, and the Exif data of HEIC photos, which it does not read. Nothing is known of
// a damaged file. Throws FactsTooLarge.
ExifDetails ReadExifDetails(const std::string& path);

// Of the library that reads it, as loaded by this process.
std::string Exiv2Version();

}  // namespace tavithumb::apps
