// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "maker/picture.h"

namespace tavithumb::maker {

// How the samples of a result come of those of a source along one axis: result i is the sum of `taps` source samples
// from starts[i] on, each times its weight. Weights of a result sum to exactly kOne, so that flat areas stay as they
// are. No sample beyond starts[i] + taps <= source samples + 1 is used; where one lies outside the source, its weight
// is 0.
struct Kernel {
  static constexpr int kBits = 14;
  static constexpr int kOne = 1 << kBits;

  int taps = 0;  // even: vector code takes samples in pairs
  std::vector<int> starts;
  std::vector<std::int16_t> weights;  // `taps` of them for each result
  bool isCopy = false;                // each result is the source sample at starts[i], which are consecutive

  int Results() const { return static_cast<int>(starts.size()); }
  const std::int16_t* Weights(int result) const {
    return weights.data() + static_cast<std::size_t>(result) * static_cast<std::size_t>(taps);
  }
};

// Along one axis, `from` to `to` (in source samples; mirrored if to < from) becomes `covered` result samples; there are
// `results` of them, rounded up. Lanczos3, widened where the result is smaller; the source's edges repeat.
Kernel MakeKernel(double from, double to, double covered, int results, int sourceSamples);

// Resample() and ResamplePlainly() without the calculation of the kernels.
Plane ResampleBy(const Plane& source, const Kernel& across, const Kernel& down);
void ResamplePlainlyInto(const Plane& source, const Kernel& across, const Kernel& down, Plane* result);

}  // namespace tavithumb::maker
