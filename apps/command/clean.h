// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "command/remover.h"

namespace tavithumb::apps::command {

// `tavithumb clean`: removes thumbnails that serve nothing any more, of files and of all that lies in folders, and
// what was left behind in the folders for temporary files. True when all could be removed and read.
bool Clean(const std::vector<std::string>& paths, const RemovalStyle& style);

}  // namespace tavithumb::apps::command
