// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace tavithumb {

// Callers may request any number of quarter turns, so these wrap around in 32 bits instead of overflowing.

std::int32_t AddTurns(std::int32_t a, std::int32_t b);

// Quarter turns as degrees, in decimal.
std::string Degrees(std::int32_t turns);

}  // namespace tavithumb
