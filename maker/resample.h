// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "maker/picture.h"
#include "maker/plan.h"

namespace tavithumb::maker {

// What becomes of a plane. The region may lie between samples; where right < left or bottom < top, the result is
// mirrored that way. It is scaled to `width` x `height`, the part of the result that the picture covers, which is at
// most half a sample smaller than `size`; samples outside the source repeat its edge.
struct Scaling {
  Region from;
  Size size;
  double width = 0;
  double height = 0;
};

// Reduces (or enlarges) a plane by Lanczos3 in fixed point, with the processor's vector instructions.
Plane Resample(const Plane& source, const Scaling& scaling);

// The same samples, by plain C++: for processors without vector instructions, and for the tests.
Plane ResamplePlainly(const Plane& source, const Scaling& scaling);

// Rows become columns: the sample at (x, y) goes to (y, x).
Plane Transpose(const Plane& source);

// All channels of a picture, scaled. `part` is in samples of the first channel, as stored; `size` is that of the
// result, before it is transposed if `orientation` swaps the sides. At 4:2:0 (`halvesChroma`), Cb and Cr get half the
// size, rounded up; else they get the same. Other models and alpha ignore it. The result is upright.
Picture Scale(const Picture& source, const Region& part, const Orientation& orientation, Size size, bool halvesChroma);

// Multiplies the colours by alpha, and divides them again; pictures without alpha, or already in that state, stay.
void Premultiply(Picture* picture);
void Unpremultiply(Picture* picture);
// Lays the picture onto white and drops its alpha.
void Flatten(Picture* picture);

}  // namespace tavithumb::maker
