// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb {

// The last component of a path, as POSIX basename() gives it.
std::string Basename(const std::string& path);

}  // namespace tavithumb
