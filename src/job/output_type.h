// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

namespace tavithumb {

// What kind of file answers a request.
enum OutputType : std::int32_t {
  outputNone = 0,
  outputAlbumex = 1,
  outputBrovix = 2,
  outputBrovixVarTmp = 3,  // a temporary file, for a source on a volume without EA writes
  outputCinevo = 4,
  outputOriginal = 5,
};

}  // namespace tavithumb
