// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <functional>
#include <stdexcept>

namespace tavithumb::apps {

// Reading the facts of a source would take more memory than any real photo needs.
class FactsTooLarge : public std::runtime_error {
 public:
  FactsTooLarge() : std::runtime_error("its metadata takes too much memory") {}
};

// Runs `read`, which has the library read facts. Throws its exceptions, or FactsTooLarge before the process grows by
// more than 48 MiB: Exiv2 allocates whole blocks, and a file of a few bytes can declare one of gigabytes. For
// single-threaded programs: until this returns, the limit applies to every allocation of the process.
void ReadInBounds(const std::function<void()>& read);

// Reads the facts without a preview, for lookups. Throws like ReadInBounds(), except that missing facts are not an
// error.
void ReadFactsOnly(Thumb* job);

// Reads the facts, and returns what else is known, for the maker. Throws like ReadFactsOnly().
PictureDetails ReadFactsAndDetails(Thumb* job);

}  // namespace tavithumb::apps
