// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/quarter_turns.h"

namespace tavithumb {

std::int32_t AddTurns(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

std::string Degrees(std::int32_t turns) {
  return std::to_string(static_cast<std::int32_t>(static_cast<std::uint32_t>(turns) * 90U));
}

}  // namespace tavithumb
