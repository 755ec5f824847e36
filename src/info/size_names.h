// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb {

// The size name of a request for a box in pixels.
inline constexpr char kCustomSizeName[] = "__CUSTOM_SIZE__";

}  // namespace tavithumb
