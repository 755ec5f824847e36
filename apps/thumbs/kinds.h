// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <string>

namespace tavithumb::apps {

// Which files the programs take for photos, and which photos browsers show themselves: the library's kinds, and those
// that only the maker decodes.

// By the extension, in upper or lower case: the library's photos, WebP, AVIF, JPEG XL, HIF and CR3.
bool IsPhoto(const std::string& name);

// Whether browsers show a photo with these facts. Not JPEG XL: few of them do.
bool IsShownByBrowsers(const ThumbInfo& source);

// The same by the extension alone, in lower case.
bool IsExtensionShownByBrowsers(const std::string& extension);

// Whether a file is a film by its name: a video by the library's list, without its entries for sound, subtitles and
// disc images, most of which have no picture.
bool IsFilm(const std::string& name);

// The type of a video that some browsers play, by its extension in lower case; "" for any other.
std::string PlayableVideoType(const std::string& extension);

}  // namespace tavithumb::apps
