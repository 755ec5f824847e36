// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// There is no room for a thumbnail beside `path`.
bool IsDiskFull(const std::string& path);

// The picture at `path` has lost its end. ImageMagick 7 ends well when a full disk takes all but the last bytes that it
// writes. Of use only where the disk is full: the preview of a camera may have no proper end.
bool IsCutOff(const std::string& path);

}  // namespace tavithumb::apps
