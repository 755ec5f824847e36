// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// `name` as an absolute path, based on the current folder if it is relative; "" stays "". Links and ".." are not
// resolved.
std::string AbsolutePath(const std::string& name);

// `name` in `folder`, with one slash between them. `folder` must not be empty.
std::string JoinPath(const std::string& folder, const std::string& name);

// The last component of a path.
std::string BaseName(const std::string& path);

}  // namespace tavithumb::apps
