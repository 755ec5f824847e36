// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tavithumb/thumb_info.h"

namespace tavithumb {

// The index of the preview from which to make a thumbnail for `box`: the one with the most pixels (the first of equals)
// among those that are not more than twice the box on both sides, provided that it has at least three quarters of
// the box's pixels. TIFF previews of Canon CR2 sources are ignored. All products wrap around in 32 bits.
std::optional<std::size_t> ChoosePreview(const std::vector<PreviewCandidate>& previews,
                                         const std::string& sourceMimeType, ThumbDimension box);

}  // namespace tavithumb
