// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::apps::command {

// `tavithumb info`: writes the facts of each file, as a table or as one JSON object per line. True if every file
// could be examined.
bool Info(const std::vector<std::string>& files, bool json);

}  // namespace tavithumb::apps::command
