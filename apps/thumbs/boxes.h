// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "maker/maker.h"
#include "thumbs/request.h"

namespace tavithumb::apps {

// The thumbnail of the photo at `source` for a box that is no named size, in memory: made from the smallest thumbnail
// of a named size that covers it, which is found or made, and stored; from the photo where there is none. Nothing if
// the photo itself is the answer, or the maker declines it, as it does animations and videos. Call it with the source
// locked, in a process that may crash. Throws like Resolve().
std::optional<maker::Thumbnail> MakeBox(const Request& request, const std::string& source);

}  // namespace tavithumb::apps
