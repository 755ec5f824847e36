// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "system/memory_file.h"

namespace tavithumb::apps {

// Stills of videos. Tools that are not part of this project take them, as processes with limits that can read nothing
// but the video and the system's files: ffmpegthumbnailer and, if it is installed, ffmpeg for HDR.

// The tool without which there are no stills, and its package.
inline constexpr char stillTool[] = "ffmpegthumbnailer";

bool IsStillToolInstalled();

// A picture of the video at the absolute path `video`: the cover that is embedded in it, else the frame after a tenth
// of its length; if that shows nothing, one of three later frames. It is upright and never HDR, and not much larger
// than `side` where that is known to save time. Nothing if the tool is not installed, finds no picture or takes more
// than a minute of processor time, four minutes or two gibibytes of memory. Throws std::system_error if there can't be
// a process.
std::optional<MemoryFile> TakeStill(const std::string& video, std::uint32_t side);

}  // namespace tavithumb::apps
