// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tavithumb::apps::command {

// The largest picture embedded in a photo that can serve as a thumbnail.
struct Preview {
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
  std::optional<Preview> preview;
};

// What the library knows of the file at `path`. Throws as ThumbInfo::ExtractImgInfo does.
Facts ReadFacts(const std::string& path);

}  // namespace tavithumb::apps::command
