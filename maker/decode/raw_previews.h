// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "maker/input.h"
#include "maker/plan.h"

namespace tavithumb::maker {

// The JPEGs that a camera has put into a raw file, found without any knowledge of the camera: in Canon's CR3 and in
// Fujifilm's RAF.
struct RawPreviews {
  std::vector<std::vector<std::uint8_t>> jpegs;  // those of them that are whole
  std::optional<Orientation> orientation;
};

// No JPEGs for other files. Throws Declined (kUnreadable), std::bad_alloc.
RawPreviews ReadRawPreviews(const Input& input);

}  // namespace tavithumb::maker
