// SPDX-License-Identifier: GPL-3.0-or-later
#include <http_file_outputer.h>

int HTTPFileOutputer::Output(const char* path, const char* mimeType) {
  std::printf("dummy outputer: %s as %s\n", path, mimeType);
  return 0;
}
int HTTPFileOutputer::Output(std::FILE*, const char*, const char*) {
  return 0;
}
