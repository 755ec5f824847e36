// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::proof {

// Names of files that shells, formats, options, addresses or terminals may take for something else; no two of them are
// the same file.
std::vector<std::string> OddNames();

}  // namespace tavithumb::proof
