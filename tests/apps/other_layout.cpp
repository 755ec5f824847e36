// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded before the platform's libraries: gives the directory of a source's entries another name than the source's.
#include <tavi/sdk.h>

#include <cstdio>
#include <cstring>
#include <string>

extern "C" __attribute__((visibility("default"))) int TAVIEAPath(int /*reserved*/, const char* source,
                                                                 const char* eaName, char* buffer, size_t size,
                                                                 int /*alsoReserved*/) {
  const std::string folder(source, std::strrchr(source, '/'));
  std::snprintf(buffer, size, "%s/.tavi_ea/entries of %s/%s", folder.c_str(), std::strrchr(source, '/') + 1, eaName);
  return 0;
}
