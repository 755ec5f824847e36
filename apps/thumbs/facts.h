// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tavithumb::apps {

// What a picture is, by its content.
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
  std::optional<Picture> preview;  // the largest one embedded in a photo that can serve as a thumbnail
};

// Nothing for "" and for a file that is no picture.
std::optional<Picture> MeasurePicture(const std::string& path);

// null, or mime_type, width, height.
nlohmann::ordered_json JsonPicture(const std::optional<Picture>& picture);

// What the library knows of the file at `path`. Throws as ExtractInBounds() does.
Facts ReadFacts(const std::string& path);

}  // namespace tavithumb::apps
