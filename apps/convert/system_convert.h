// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::apps::convert {

// The system's convert, of ImageMagick. The library passes this path as argument 0 to any build of convert.
inline constexpr char kSystemConvert[] = "/usr/bin/convert";

}  // namespace tavithumb::apps::convert
