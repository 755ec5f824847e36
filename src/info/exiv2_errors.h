// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <exiv2/exiv2.hpp>

namespace tavithumb {

// Exiv2's error numbers as used in the library's rules and log lines.
constexpr int kExiv2CannotOpen = 9;
constexpr int kExiv2UnknownType = 11;

// The number of an Exiv2 error in that numbering, for any release of Exiv2.
int Exiv2Code(const Exiv2::Error& error);

// Some builds of Exiv2 support ISO-BMFF and video containers; the others report an unknown image type. Throws that
// error for such an image, so that HEIF photos are measured the same way everywhere.
void RefuseContainers(const Exiv2::Image& image, const std::string& path);

}  // namespace tavithumb
