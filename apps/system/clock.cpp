// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/clock.h"

#include <algorithm>
#include <limits>

namespace tavithumb::apps {

int MillisecondsUntil(Clock::time_point moment, Clock::time_point now) {
  using std::chrono::milliseconds;
  if (moment == noDeadline) return -1;
  constexpr milliseconds longest(std::numeric_limits<int>::max());
  return static_cast<int>(std::clamp(std::chrono::ceil<milliseconds>(moment - now), milliseconds(0), longest).count());
}

}  // namespace tavithumb::apps
