// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <lcms2.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace tavithumb::maker {

// Converts pixels from a profile of three curves and a matrix, as cameras' and displays' are, to sRGB. The same colours
// as lcms2 gives, in a fraction of the time.
class MatrixToSrgb {
 public:
  // Nothing if the profile is of another kind.
  static std::optional<MatrixToSrgb> Of(cmsHPROFILE profile);

  // Changes rows of samples. All three are read and written up to the next multiple of kStep.
  void Convert(std::uint8_t* red, std::uint8_t* green, std::uint8_t* blue, std::size_t width) const;

  static constexpr std::size_t kStep = 32;

 private:
  MatrixToSrgb() = default;

  std::array<std::array<float, 256>, 3> light_ = {};  // of each sample
  std::array<std::array<float, 3>, 3> matrix_ = {};   // from light to sRGB's light, in steps
};

}  // namespace tavithumb::maker
