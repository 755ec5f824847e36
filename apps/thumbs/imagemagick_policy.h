// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// The folder of ImageMagick's policy.xml unless an option names another: $MAGICK_CONFIGURE_PATH, else the one installed
// with the programs. It need not exist. Throws std::filesystem::filesystem_error if the program can't determine its own
// path.
std::string DefaultPolicyFolder();

// `folder` as an absolute path without links; "" if it has no policy.xml. Without one, ImageMagick would read any
// format that it supports.
std::string FindPolicy(const std::string& folder);

// Makes every tool that this process starts from now on obey the policy in `folder`, an absolute path.
void UsePolicy(const std::string& folder);

}  // namespace tavithumb::apps
