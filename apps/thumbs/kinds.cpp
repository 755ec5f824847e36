// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/kinds.h"

#include <tavithumb/util.h>

#include <set>

namespace tavithumb::apps {

bool IsPhoto(const std::string& name) {
  return IsSupportImage(name) || IsSupportExt({"webp", "avif", "jxl", "hif", "cr3"}, name);
}

bool IsShownByBrowsers(const ThumbInfo& source) {
  return source.IsWebAcceptable() || source.GetMimeType() == "image/webp" || source.GetMimeType() == "image/avif";
}

bool IsExtensionShownByBrowsers(const std::string& extension) {
  static const std::set<std::string> shown = {"jpg", "jpeg", "jpe", "png", "gif", "bmp", "webp", "avif"};
  return shown.count(extension) != 0;
}

}  // namespace tavithumb::apps
