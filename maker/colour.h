// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "maker/picture.h"

namespace tavithumb::maker {

// Whether the samples mean what sRGB says, so that nothing has to be converted: no profile, or one that is sRGB by its
// content (whatever its name), and a model that a thumbnail has.
bool IsSrgb(const Picture& picture);

// Converts to sRGB (relative colorimetric, black point compensation) with the picture's profile; one that is damaged or
// is for another model is ignored. The result is kRgb or kGray without a profile; alpha stays. CMYK without a profile
// becomes RGB by the plain formula. Does nothing if IsSrgb(). The picture must not be premultiplied, and all of its
// planes must be equally large.
void ConvertToSrgb(Picture* picture);

// R, G and B of Y, Cb and Cr, and back, by `picture->ycc`; back always as JPEG files have them. All planes must be
// equally large. Alpha stays.
void YccToRgb(Picture* picture);
void RgbToYcc(Picture* picture);

// The profile of a picture that only says "AdobeRGB" in its Exif data.
std::vector<std::uint8_t> AdobeRgbProfile();

}  // namespace tavithumb::maker
