// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::proof {

// Photos of which the library makes thumbnails by different ways. The JPEGs have bytes enough to be worth one.
void MakeBigJpeg(const std::string& path);
void MakeTurnedJpeg(const std::string& path);
void MakeJpegWithPreview(const std::string& path);
void MakeTurnedJpegWithPreview(const std::string& path);
void MakeRawPhoto(const std::string& path);

}  // namespace tavithumb::proof
