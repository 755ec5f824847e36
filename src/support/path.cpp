// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/path.h"

#include <libgen.h>

namespace tavithumb {

std::string Basename(const std::string& path) {
  std::string copy = path;
  return basename(copy.data());
}

}  // namespace tavithumb
