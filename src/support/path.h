// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb {

// The last component of a path, as returned by POSIX basename().
std::string Basename(const std::string& path);

}  // namespace tavithumb
