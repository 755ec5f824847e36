// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <functional>

namespace tavithumb::apps {

// For deadlines: a clock that can't be set.
using Clock = std::chrono::steady_clock;

// Returns the current time: Clock::now, or a clock that a test sets.
using Now = std::function<Clock::time_point()>;

constexpr Clock::time_point noDeadline = Clock::time_point::max();

// The timeout for poll() that expires at `moment` or up to a millisecond later; -1 (wait indefinitely) for noDeadline.
int MillisecondsUntil(Clock::time_point moment, Clock::time_point now = Clock::now());

}  // namespace tavithumb::apps
