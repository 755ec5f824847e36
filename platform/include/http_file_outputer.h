// SPDX-License-Identifier: GPL-3.0-or-later
// libhttp-file-outputer: a file as an HTTP response on standard output.
#pragma once

#include <cstdio>

// In a process that a web server has started, or that acts like one (GATEWAY_INTERFACE is set), the response follows
// the CGI variables: REQUEST_METHOD "HEAD" leaves out the content; HTTP_IF_NONE_MATCH, HTTP_IF_MODIFIED_SINCE,
// HTTP_IF_RANGE and HTTP_RANGE make it 304, 206 or 416, HTTP_IF_MATCH and HTTP_IF_UNMODIFIED_SINCE 412. If-Range
// accepts the ETag, or the date of a file that was last changed at least a second after it was modified. In any other
// process the response is plain: type, length and content.
class __attribute__((visibility("default"))) HTTPFileOutputer {
 public:
  // Writes the headers that are still missing and the content of the file at `path` to standard output, after what the
  // caller has already printed there. Returns 0 if all of it was written, -1 otherwise. A broken pipe raises no signal.
  // Fails for a MIME type with a line break, without writing headers or content.
  int Output(const char* path, const char* mimeType);

  // The same for content read from `stream` until its end; `fileName` names it for the headers. Its length is not
  // known, so ranges and conditions are ignored. The stream stays open; the caller owns it.
  int Output(std::FILE* stream, const char* fileName, const char* mimeType);
};
