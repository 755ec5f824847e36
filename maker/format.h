// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::maker {

// What the maker decodes: a file's first bytes decide which, never its name.
enum class Format { kJpeg, kPng, kGif, kBmp, kTiff, kWebp, kHeif, kJxl, kRaw };

}  // namespace tavithumb::maker
