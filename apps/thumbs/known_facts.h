// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "maker/maker.h"

namespace tavithumb::apps {

// What the programs know of sources of which the library knows nothing: AVIF, JPEG XL, HIF, CR3, HEIC without Exif, and
// raw files that Exiv2 does not know.

// The library's facts. Where it has none and the maker recognises the content, a record that has its type, but no size
// and no orientation: the names of thumbnails are then those that the library gives without facts.
ThumbInfo KnownFacts(const ThumbInfo& source);

// Whether such a record's facts are the maker's.
bool IsKnownToMakerAlone(const ThumbInfo& source);

// Reads the library's facts without a preview, and completes them unless the library is to be on its own. Throws like
// ReadFactsOnly().
void ReadKnownFacts(bool byLibrary, Thumb* job);

// The maker recognises the type of a source, but can't read its size.
class SizeNotRead : public std::runtime_error {
 public:
  SizeNotRead() : std::runtime_error("its size in pixels cannot be read") {}
};

// What the maker reads from the file's header; nothing as well if that takes too much memory.
std::optional<maker::Content> ExamineInBounds(const std::string& path);

// The same in a process of its own; nothing as well if that crashes.
std::optional<maker::Content> ExamineInChild(const std::string& path);

}  // namespace tavithumb::apps
