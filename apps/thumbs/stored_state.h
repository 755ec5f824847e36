// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <functional>
#include <optional>
#include <string>

#include "maker/maker.h"
#include "thumbs/request.h"

namespace tavithumb::apps {

enum class StoredState {
  kMissing,
  kGood,
  kStale,  // made of another state of the source
  kBad,    // a BMP, larger than its box, or a single pixel: earlier versions and the library's tools make such ones
};

// Whether the thumbnail that would be made for the request of `job`, whose facts have been read, is stored already and
// may stay; an up-to-date screenshot of a video is as good. All programs go by this. Where the library's tools make the
// thumbnails, the library's rule counts: any thumbnail that is not older than its source is good. `examine` reads the
// header of a thumbnail: maker::Examine(), or FileMemory::Examine().
using Examine = std::function<std::optional<maker::Content>(const std::string&)>;
StoredState StateOfStored(const Request& request, const Thumb& job, const Examine& examine = maker::Examine);

// Whether the answer that a lookup step has given `job` may be served: anything but a thumbnail that is stale or bad.
bool IsGoodAnswer(const Request& request, const Thumb& job, const Examine& examine = maker::Examine);

}  // namespace tavithumb::apps
