// SPDX-License-Identifier: GPL-3.0-or-later
// The header of a video.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>

#include "fuzz.h"
#include "thumbs/film_facts.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("film", MFD_CLOEXEC);
  Require(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  const tavithumb::apps::FilmFacts facts = tavithumb::apps::ReadFilmFacts("/proc/self/fd/" + std::to_string(file));
  Require(std::isfinite(facts.seconds) && facts.seconds >= 0);
  return 0;
}
