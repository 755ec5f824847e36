// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cmath>

namespace tavithumb::test {

inline double Lanczos3(double x) {
  const double pi = std::acos(-1.0);
  if (x == 0) return 1;
  return std::abs(x) >= 3 ? 0 : 3 * std::sin(pi * x) * std::sin(pi * x / 3) / (pi * pi * x * x);
}

}  // namespace tavithumb::test
