// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// `name` behind the current folder unless it is absolute; "" stays "". Links and ".." are left as they are.
std::string AbsolutePath(const std::string& name);

// The last part of a path.
std::string BaseName(const std::string& path);

}  // namespace tavithumb::apps
