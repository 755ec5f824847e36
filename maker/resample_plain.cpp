// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>

#include "maker/kernel.h"
#include "maker/resample.h"

namespace tavithumb::maker {
namespace {

std::uint8_t Clamped(int sum) {
  return static_cast<std::uint8_t>(std::clamp((sum + Kernel::kOne / 2) >> Kernel::kBits, 0, 255));
}

void AddRows(const Plane& source, const Kernel& down, int y, Plane* result) {
  const int start = down.starts[static_cast<std::size_t>(y)];
  for (int x = 0; x < source.Width(); ++x) {
    int sum = 0;
    for (int i = 0; i < down.taps; ++i) {
      sum += down.Weights(y)[i] * source.Row(std::min(start + i, source.Height() - 1))[x];
    }
    result->Row(0)[x] = Clamped(sum);
  }
}

void ScaleRow(const std::uint8_t* row, const Kernel& across, std::uint8_t* result) {
  for (int x = 0; x < across.Results(); ++x) {
    const std::uint8_t* samples = row + across.starts[static_cast<std::size_t>(x)];
    int sum = 0;
    for (int i = 0; i < across.taps; ++i) sum += across.Weights(x)[i] * samples[i];
    result[x] = Clamped(sum);
  }
}

}  // namespace

void ResamplePlainlyInto(const Plane& source, const Kernel& across, const Kernel& down, Plane* result) {
  Plane between({source.Width(), 1});
  for (int y = 0; y < result->Height(); ++y) {
    AddRows(source, down, y, &between);
    ScaleRow(between.Row(0), across, result->Row(y));
  }
}

Plane ResamplePlainly(const Plane& source, const Scaling& scaling) {
  const Region& from = scaling.from;
  Plane result(scaling.size);
  ResamplePlainlyInto(source, MakeKernel(from.left, from.right, scaling.width, scaling.size.width, source.Width()),
                      MakeKernel(from.top, from.bottom, scaling.height, scaling.size.height, source.Height()), &result);
  return result;
}

}  // namespace tavithumb::maker
