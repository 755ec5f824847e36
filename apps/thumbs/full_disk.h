// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// Whether there is no room for a thumbnail next to `path`.
bool IsDiskFull(const std::string& path);

// Whether the picture at `path` is truncated. ImageMagick 7 reports success when a full disk cuts off the last bytes
// that it writes. Check this only on a full disk: a camera's preview may lack a proper end marker.
bool IsCutOff(const std::string& path);

}  // namespace tavithumb::apps
