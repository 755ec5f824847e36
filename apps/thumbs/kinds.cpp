// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/kinds.h"

#include <tavithumb/util.h>

#include <map>
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

bool IsFilm(const std::string& name) {
  return IsSupportVideo(name) &&
         !IsSupportExt({"ac3", "amr", "dat", "ifo", "iso", "m4a", "m4b", "m4p", "m4r", "mka", "mks", "swf"}, name);
}

std::string PlayableVideoType(const std::string& extension) {
  static const std::map<std::string, std::string> types = {
      {"mp4", "video/mp4"},        {"m4v", "video/mp4"},   {"mov", "video/quicktime"},
      {"qt", "video/quicktime"},   {"webm", "video/webm"}, {"ogv", "video/ogg"},
      {"mkv", "video/x-matroska"}, {"3gp", "video/3gpp"},  {"3g2", "video/3gpp2"}};
  const auto type = types.find(extension);
  return type == types.end() ? "" : type->second;
}

}  // namespace tavithumb::apps
