// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace tavithumb::apps {

// What the header of a video says.
struct FilmFacts {
  double seconds = 0;                   // its length; 0 if not known
  std::uint32_t width = 0, height = 0;  // in pixels, as stored; 0 if not known
  bool isHdr = false;                   // its brightness is coded as PQ or HLG
  bool hasCover = false;                // a picture is embedded in it
};

// Reads the headers of MP4, MOV and their kin, and of Matroska and WebM: little of the file, however long it is, and
// nothing of its pictures. All is unknown for other videos, and for damaged or missing files.
FilmFacts ReadFilmFacts(const std::string& path);

}  // namespace tavithumb::apps
