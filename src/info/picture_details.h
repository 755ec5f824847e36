// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <exiv2/exiv2.hpp>
#include <vector>

#include "tavithumb/thumb_info.h"

namespace tavithumb {

std::vector<PreviewCandidate> Candidates(const Exiv2::PreviewPropertiesList& list);

// What is known of a picture whose metadata has been read, besides its type, size and orientation. `orientationIndex`
// is the index in ThumbInfo::rotateFlopMappingList_. Call it under the lock. Exiv2's exceptions propagate.
PictureDetails DetailsOf(const Exiv2::Image& image, std::uint32_t orientationIndex);

}  // namespace tavithumb
