// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::proof {

// Photos whose thumbnails the library makes in different ways. The JPEGs are large enough to need one.
void MakeBigJpeg(const std::string& path);
void MakeTurnedJpeg(const std::string& path);
void MakeJpegWithPreview(const std::string& path);
void MakeTurnedJpegWithPreview(const std::string& path);
void MakeRawPhoto(const std::string& path);

}  // namespace tavithumb::proof
