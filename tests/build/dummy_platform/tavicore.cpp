// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavi/core.h>

int TAVIFSIsRemoteFS(int type) {
  return type == 4242 ? 1 : 0;
}
int TAVIFSIsImageFS(int) {
  return 0;
}
int TLIBCExecv(const char*, const char* const*, int) {
  return 0;
}
int TLIBCExecl(const char*, int, ...) {
  return 0;
}
FILE* TLIBCPopenv(const char*, const char*, const char* const*) {
  return nullptr;
}
int TLIBCPclose(FILE*) {
  return 0;
}
