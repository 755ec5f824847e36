// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// The name of the folder, next to the sources, in which their thumbnails are stored. No file in it is a source.
const std::string& EAFolderName();

// Whether `folder`, an absolute path, is a folder of thumbnails or inside one.
bool IsInEAFolder(const std::string& folder);

}  // namespace tavithumb::apps
