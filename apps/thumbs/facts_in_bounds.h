// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <stdexcept>

namespace tavithumb::apps {

// The facts of a source ask for more memory than any photo's do.
class FactsTooLarge : public std::runtime_error {
 public:
  FactsTooLarge() : std::runtime_error("its metadata takes too much memory") {}
};

// Does as ThumbInfo::ExtractImgInfo(), and throws as that does, or FactsTooLarge before the process has grown by more
// than 48 MiB: Exiv2 takes blocks as a whole, and a file of few bytes can hold one of gigabytes. For programs with
// one thread: until this returns, no allocation of the process goes beyond that.
void ExtractInBounds(ThumbInfo* info, bool withPreview);

}  // namespace tavithumb::apps
