// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <lcms2.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavithumb::maker {

using Samples = std::vector<std::uint8_t>;  // of one pixel after the other

// What lcms2 itself makes of pixels, without any of its shortcuts.
inline Samples Converted(const Samples& pixels, const Samples& profile, cmsUInt32Number format) {
  cmsHPROFILE from = cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
  cmsHPROFILE to = cmsCreate_sRGBProfile();
  cmsHTRANSFORM transform =
      cmsCreateTransform(from, format, to, TYPE_RGB_8, INTENT_RELATIVE_COLORIMETRIC,
                         cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
  const std::size_t count = pixels.size() / T_CHANNELS(format);
  Samples converted(3 * count);
  cmsDoTransform(transform, pixels.data(), converted.data(), static_cast<cmsUInt32Number>(count));
  cmsDeleteTransform(transform);
  cmsCloseProfile(from);
  cmsCloseProfile(to);
  return converted;
}

// The mean of CIEDE2000 between the pixels of two sRGB pictures.
inline double MeanDifference(const Samples& a, const Samples& b) {
  cmsHPROFILE srgb = cmsCreate_sRGBProfile();
  cmsHPROFILE lab = cmsCreateLab4Profile(nullptr);
  cmsHTRANSFORM transform = cmsCreateTransform(srgb, TYPE_RGB_8, lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); i += 3) {
    cmsCIELab one;
    cmsCIELab other;
    cmsDoTransform(transform, a.data() + i, &one, 1);
    cmsDoTransform(transform, b.data() + i, &other, 1);
    sum += cmsCIE2000DeltaE(&one, &other, 1, 1, 1);
  }
  cmsDeleteTransform(transform);
  cmsCloseProfile(srgb);
  cmsCloseProfile(lab);
  return sum / (static_cast<double>(a.size()) / 3);
}

}  // namespace tavithumb::maker
