// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

namespace tavithumb {

// The type of file that answers a request.
enum OutputType : std::int32_t {
  kOutputNone = 0,
  kOutputAlbumex = 1,
  kOutputBrovix = 2,
  kOutputBrovixVarTmp = 3,  // a temporary file, for a source on a volume without EA writes
  kOutputCinevo = 4,
  kOutputOriginal = 5,
};

}  // namespace tavithumb
