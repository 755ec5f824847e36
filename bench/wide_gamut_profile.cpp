// SPDX-License-Identifier: GPL-3.0-or-later
// Writes a profile to standard output: Display P3, as phones embed it, or with the argument "adobe-rgb" that one.
#include <lcms2.h>

#include <array>
#include <cstdio>
#include <string_view>
#include <vector>

#include "maker/colour.h"

namespace {

int Write(const std::vector<unsigned char>& bytes) {
  return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == "adobe-rgb") return Write(tavithumb::maker::AdobeRgbProfile());
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
  return Write(bytes);
}
