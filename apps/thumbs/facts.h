// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace tavithumb::apps {

// Type and size in pixels of a picture, read from its content.
struct Picture {
  std::string mimeType;
  std::uint32_t width;
  std::uint32_t height;
};

struct Facts {
  bool isVideo = false;
  std::string mimeType;  // "" for a video
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  int orientation = 1;
  int quarterTurns = 0;
  bool isMirrored = false;
  bool isHeic = false;
  std::optional<Picture> preview;  // the largest embedded one that can serve as a thumbnail
  std::string colourSpace;         // "sRGB", "AdobeRGB", or "" if Exif data does not say it
  std::string cameraMake;          // "" if not known, as in the following
  std::string cameraModel;
  std::string timeTaken;  // as ExifDetails says, like the following
  std::string lens;
  std::string exposure;
  std::string place;
  double seconds = 0;  // the length of a video; 0 if not known
};

// Nothing for "" and for a file that is not a picture.
std::optional<Picture> MeasurePicture(const std::string& path);

// An object of mime_type, width and height, or null for nothing.
nlohmann::ordered_json JsonPicture(const std::optional<Picture>& picture);

// What is known of the camera, in one line: many models begin with the name of their make.
std::string CameraOf(const Facts& facts);

// All facts of a photo as an object, null for what is not known; of a video, its size in pixels and its length.
nlohmann::ordered_json JsonFacts(const Facts& facts);

// What the library knows about the photo at `path` or, where it knows nothing, the maker; what the header of a video
// says. Throws like ReadInBounds(), and SizeNotRead; nothing for a video.
Facts ReadFacts(const std::string& path);

}  // namespace tavithumb::apps
