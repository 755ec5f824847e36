// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "thumbs/file_memory.h"
#include "web/confinement.h"
#include "web/http_error.h"
#include "web/request_state.h"
#include "web/roots.h"
#include "web/scgi.h"
#include "web/worker.h"

namespace tavithumb::apps::web {

// What all answers share.
struct Service {
  const Roots& roots;
  const Confinement& confinement;
  FileMemory* memory;
  std::string sendfile;  // as Settings says
  bool byLibrary;        // as Request says, like the next
  int quality;
};

// Answers one request: writes a complete CGI response to standard output, for any request. Failures are logged.
void Answer(const Variables& variables, const Service& service, const Turn& turn);

// Writes the error response to a request that could not be parsed.
void Refuse(const Variables& variables, const HttpError& error, RequestState* state);

}  // namespace tavithumb::apps::web
