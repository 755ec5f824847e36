// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <functional>

namespace tavithumb::apps {

using Clock = std::chrono::steady_clock;

// Returns the current time: Clock::now, or a clock that a test sets.
using Now = std::function<Clock::time_point()>;

}  // namespace tavithumb::apps
