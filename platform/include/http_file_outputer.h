// SPDX-License-Identifier: GPL-3.0-or-later
// libhttp-file-outputer: a file as an HTTP response on standard output.
#pragma once

#include <cstdio>

class __attribute__((visibility("default"))) HTTPFileOutputer {
 public:
  // Writes the headers that are still missing and the content of the file at `path` to standard output, behind what
  // the caller has already printed there. Returns 0 when all of it was written.
  int Output(const char* path, const char* mimeType);

  // The same for content read from `stream` until its end; `fileName` names it for the headers. The stream stays
  // open and the caller's.
  int Output(std::FILE* stream, const char* fileName, const char* mimeType);
};
