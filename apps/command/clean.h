// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "command/remover.h"

namespace tavithumb::apps::command {

// `tavithumb clean`: removes obsolete thumbnails of the given files and of everything below the given folders, and
// abandoned files from the folders for temporary files. With a store, also from there what belongs to them; from all of
// it if there are no paths. True if everything could be read and removed.
bool Clean(const std::vector<std::string>& paths, const RemovalStyle& style);

// Removes the thumbnails of a file, and in a store of everything below a folder, that is gone.
void CleanAfter(const std::string& path, const RemovalStyle& style);

}  // namespace tavithumb::apps::command
