// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include "maker/versions.h"

namespace tavithumb::apps {

// What the programs and the library use on this machine, with versions: codecs, Exiv2 and the library's tools. The
// version of a missing tool is "not found". Runs each tool for it.
std::vector<maker::Version> ToolVersions();

}  // namespace tavithumb::apps
