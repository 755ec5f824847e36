// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::maker {

// A library, or a decoder that one has loaded, with its version.
struct Version {
  std::string name;
  std::string number;
};

// The libraries that decode and encode pictures: as loaded by this process, as far as they can say, else as built with.
// Those that decode HEIC and AVIF are plugins and may be missing.
std::vector<Version> CodecVersions();

}  // namespace tavithumb::maker
