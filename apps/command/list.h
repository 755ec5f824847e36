// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::apps::command {

// `tavithumb list`: writes the thumbnails stored for each source, as a table or as one JSON object per line. True if
// all could be read.
bool List(const std::vector<std::string>& sources, bool json);

}  // namespace tavithumb::apps::command
