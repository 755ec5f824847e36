// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "maker/declined.h"
#include "maker/encode/encode.h"
#include "maker/format.h"
#include "maker/plan.h"

namespace tavithumb::maker {

// Makes thumbnails: one decode of a source, every size of it.
//
//     Source source = {"/photos/beach.jpg", Orientation{1, false}};  // stored on its side: one quarter turn clockwise
//     std::vector<Thumbnail> made = Make(source, {{{640, 640}}, {{120, 120}}}, {});
//     made[0].bytes ...                                             // a JPEG within 640 x 640, upright, in sRGB
//
// A thumbnail never exceeds its box, is never larger than the source, and has the size that ImageMagick's -thumbnail
// gives it. It is a PNG if the source is one, else a baseline JPEG, unless the options say otherwise; it has no
// metadata but the texts of the options.
//
// Decoders work on files that anybody may have written: call this only in a process that may crash, run out of memory
// or be stopped. One thread; nothing is left on disk.

struct Source {
  std::string path;
  // What makes the stored picture upright; decoders that do it themselves ignore it. If unknown, the decoder's facts
  // are used.
  std::optional<Orientation> orientation;
  bool alwaysTurns = false;     // the orientation is applied to what such decoders give, too
  int userTurns = 0;            // quarter turns clockwise in addition, 0 to 3
  bool isAdobeRgb = false;      // its Exif data says so; an embedded profile counts more
  bool keepsAnimation = false;  // an animation is declined (kAnimation)
  // Embedded JPEG previews, stored the same way up. They stand in for a JPEG in sRGB only.
  std::vector<std::vector<std::uint8_t>> previews;
};

struct Options {
  int quality = 80;          // of JPEG and WebP, 1 to 100
  bool usesPreviews = true;  // an embedded preview may stand in for the picture
  bool wholeOnly = false;    // a picture that is cut off, other than a JPEG, is declined (kDamaged)
  std::optional<Type> type;  // of all thumbnails
  PngTexts pngTexts;         // of those that are PNGs
};

struct Thumbnail {
  Size size;
  Type type = Type::kJpeg;
  std::vector<std::uint8_t> bytes;
};

const char* MimeTypeOf(Type type);

// The MIME type of a file by its first bytes, whatever its name; "" if no decoder knows it or it can't be read.
std::string RecogniseType(const std::string& path);

// What a file is by its content, whatever its name.
struct Content {
  Size stored;
  Format format = Format::kJpeg;
  bool isAnimated = false;
  Orientation orientation;  // makes the stored picture upright, as far as the decoder knows
};

// Reads only the file's header. Nothing if no decoder knows it, or it is damaged or can't be read. Throws
// std::bad_alloc.
std::optional<Content> Examine(const std::string& path);

// The Exif data of a HEIF photo, as a TIFF structure of at most 1 MiB. Empty if there is none, for all other files, and
// if the file is damaged or can't be read. Throws std::bad_alloc.
std::vector<std::uint8_t> ReadExif(const std::string& path);

// How much the brightness of a picture varies: the standard deviation of its samples of 0 to 255, seen at a small size.
// A frame that shows nothing has almost none. Throws like Make().
double ContrastOf(const std::string& path);

// One thumbnail for each target, in the order of the targets. Throws Declined, std::bad_alloc.
std::vector<Thumbnail> Make(const Source& source, const std::vector<Target>& targets, const Options& options);

}  // namespace tavithumb::maker
