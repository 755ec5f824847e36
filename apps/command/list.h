// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::apps::command {

// `tavithumb list`: writes what is stored for each source, as a table or as one JSON object a line. True when all of it
// could be read.
bool List(const std::vector<std::string>& sources, bool json);

}  // namespace tavithumb::apps::command
