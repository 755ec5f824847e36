// SPDX-License-Identifier: GPL-3.0-or-later
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

const std::unordered_set<const char*> kImageExtensions = {
    "jpg", "jpeg", "jpe", "bmp", "png", "tif", "tiff", "gif", "arw", "srf", "sr2", "dcr", "k25", "kdc", "cr2",  "crw",
    "nef", "mrw",  "ptx", "pef", "raf", "3fr", "erf",  "mef", "mos", "orf", "rw2", "dng", "x3f", "raw", "heic", "heif",
};

const std::unordered_set<const char*> kVideoExtensions = {
    "3gp", "3g2",   "asf",   "dat",   "divx", "dvr-ms", "m2t",  "m2ts", "mk3d", "mka", "mks", "m4a",
    "m4v", "mkv",   "mp4",   "mts",   "m4p",  "m4b",    "m4r",  "mov",  "qt",   "tp",  "trp", "ts",
    "vob", "wmv",   "xvid",  "ac3",   "amr",  "rm",     "rmvb", "ifo",  "mpeg", "mpg", "mpe", "m1v",
    "m2v", "mpeg1", "mpeg2", "mpeg4", "ogv",  "webm",   "flv",  "f4v",  "avi",  "swf", "vdr", "iso",
};

}  // namespace

bool IsSupportExt(const std::unordered_set<const char*>& extensions, const std::string& path) {
  const std::string extension = file::GetFileExt(path);
  for (const char* supported : extensions) {
    if (extension == supported) return true;
  }
  return false;
}

bool IsSupportImage(const std::string& path) {
  return IsSupportExt(kImageExtensions, path);
}

bool IsSupportVideo(const std::string& path) {
  return IsSupportExt(kVideoExtensions, path);
}

}  // namespace tavithumb
