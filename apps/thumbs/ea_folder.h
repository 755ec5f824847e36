// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// The name of the folder beside the sources in which their thumbnails lie. What is in it is no source.
const std::string& EAFolderName();

// The folder lies among thumbnails, or is where they lie itself.
bool IsAmongThumbs(const std::string& folder);

}  // namespace tavithumb::apps
