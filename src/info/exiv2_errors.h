// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <exiv2/exiv2.hpp>

namespace tavithumb {

// Exiv2's error numbers as the library's rules and log lines know them.
constexpr int kExiv2CannotOpen = 9;
constexpr int kExiv2UnknownType = 11;

// The number of an Exiv2 error in that numbering, whatever the release of Exiv2.
int Exiv2Code(const Exiv2::Error& error);

// Exiv2 builds that know ISO-BMFF and video containers report what others call an unknown image type. Throws that
// error for such an image, so that photos in HEIF are measured the same way everywhere.
void RefuseContainers(const Exiv2::Image& image, const std::string& path);

}  // namespace tavithumb
