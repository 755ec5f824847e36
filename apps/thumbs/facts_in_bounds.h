// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <functional>
#include <stdexcept>

namespace tavithumb::apps {

// The facts of a source ask for more memory than any photo's do.
class FactsTooLarge : public std::runtime_error {
 public:
  FactsTooLarge() : std::runtime_error("its metadata takes too much memory") {}
};

// Runs `read`, which has the library read facts, and throws what it throws, or FactsTooLarge before the process has
// grown by more than 48 MiB: Exiv2 takes blocks as a whole, and a file of few bytes can hold one of gigabytes. For
// programs with one thread: until this returns, no allocation of the process goes beyond that.
void ReadInBounds(const std::function<void()>& read);

// The facts without a preview, for looking things up. Throws as ReadInBounds() does, but for facts that don't exist.
void ReadFactsOnly(Thumb* job);

}  // namespace tavithumb::apps
