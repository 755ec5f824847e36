// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// The folder of ImageMagick's policy.xml unless an option names another: $MAGICK_CONFIGURE_PATH, else the one installed
// with the programs. It need not exist. Throws std::filesystem::filesystem_error when the program can't find itself.
std::string DefaultPolicyFolder();

// `folder` as an absolute path without links; "" when it holds no policy.xml. Without one, ImageMagick would read
// whatever it can.
std::string FindPolicy(const std::string& folder);

// Every tool that this process starts from here on obeys the policy in `folder`, an absolute path.
void UsePolicy(const std::string& folder);

}  // namespace tavithumb::apps
