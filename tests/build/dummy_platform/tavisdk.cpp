// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavi/sdk.h>

#include <cstdio>

int TAVIEAPath(int, const char*, const char* eaName, char* buffer, size_t size, int) {
  return std::snprintf(buffer, size, "/dummy-ea/%s", eaName);
}
int TAVIEADirPath(int, const char*, char* buffer, size_t size) {
  std::snprintf(buffer, size, "/dummy-ea");
  return 0;
}
int TAVIEAMKDir(int, const char*) {
  return 0;
}
int TAVIGetFSType(const char*, int) {
  return 4242;
}
