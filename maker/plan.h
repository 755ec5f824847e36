// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "maker/picture.h"

namespace tavithumb::maker {

// What is expensive is decided here, by pure functions: how large, which part, which way up, which preview, which type.
// Boxes and sizes are upright unless "stored" is in the name: as the pixels are in the file.

// How the stored picture becomes upright: mirrored left-right first (`isMirrored`), then turned clockwise.
struct Orientation {
  int quarterTurns = 0;  // 0 to 3
  bool isMirrored = false;

  bool SwapsSides() const { return quarterTurns % 2 != 0; }
};

// With that many quarter turns clockwise in addition.
Orientation Turned(const Orientation& orientation, int quarterTurns);

// A part of a plane or picture, in its samples, which need not be whole numbers.
struct Region {
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
};

// A wanted thumbnail.
struct Target {
  Size box;
  // Fills the box exactly, cropped from the centre. Nothing is enlarged: where the picture is too small, the thumbnail
  // is the largest part that has the box's aspect, in its own pixels.
  bool isCropped = false;
  // If set, the thumbnail is exactly this part of the stored picture, in the picture's own pixels: whole numbers, and
  // within the picture. The box is the part's size.
  std::optional<Region> part = std::nullopt;
};

// Thumbnails of at most this side keep the full resolution of Cb and Cr; larger ones have half of it.
inline constexpr int kFullChromaSide = 160;

// One thumbnail to make, of the upright picture.
struct Step {
  std::size_t target = 0;  // its place in the caller's list
  Size size;               // the thumbnail's
  Region part;             // of an upright picture of the size Plan::upright
};

struct Plan {
  Size upright;             // the whole picture's size, upright
  Size decodeAtLeast;       // as stored: no step needs a larger picture
  std::vector<Step> steps;  // the least reduced first, whole pictures before their crops
};

// The size to the pixel that ImageMagick's -thumbnail gives a picture in the box; the picture's own if it fits.
Size FitInto(Size picture, Size box);

Size Upright(Size stored, const Orientation& orientation);

Plan MakePlan(Size stored, const Orientation& orientation, const std::vector<Target>& targets);

// The largest of 8, 4, 2 and 1 by which a JPEG's sides can be divided while decoding, so that both, rounded up, are
// still at least as large as `atLeast`.
int JpegDenominator(Size stored, Size atLeast);

// An embedded preview, as stored.
struct Preview {
  Size size;
};

// The smallest preview that is at least as large as `atLeast`, as stored, and has the photo's aspect within 1 %. With
// `orLargest`, the largest of that aspect if none is large enough. Returns its index.
std::optional<std::size_t> ChoosePreview(Size stored, const std::vector<Preview>& previews, Size atLeast,
                                         bool orLargest);

enum class Type { kJpeg, kPng, kWebp };

// The bytes that a thumbnail will have, more or less: from pixels, type and quality; nothing is encoded.
std::int64_t EstimateBytes(Size size, Type type, int quality);

}  // namespace tavithumb::maker
