// SPDX-License-Identifier: GPL-3.0-or-later
// Writes a Display P3 profile, as phones embed it, to standard output.
#include <lcms2.h>

#include <array>
#include <cstdio>
#include <vector>

int main() {
  const cmsCIExyY white = {0.3127, 0.3290, 1};
  const cmsCIExyYTRIPLE primaries = {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}};
  const std::array<cmsFloat64Number, 5> srgb = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  cmsToneCurve* const curve = cmsBuildParametricToneCurve(nullptr, 4, srgb.data());
  const std::array<cmsToneCurve*, 3> curves = {curve, curve, curve};
  const cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves.data());
  cmsUInt32Number size = 0;
  if (cmsSaveProfileToMem(profile, nullptr, &size) == 0) return 1;
  std::vector<unsigned char> bytes(size);
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  cmsFreeToneCurve(curve);
  return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() ? 0 : 1;
}
