// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "web/confinement.h"
#include "web/http_error.h"
#include "web/request_state.h"
#include "web/roots.h"
#include "web/scgi.h"

namespace tavithumb::apps::web {

// Answers one request: writes a whole CGI response to standard output, whatever is asked. Failures are logged.
void Answer(const Variables& variables, const Roots& roots, const Confinement& confinement, RequestState* state);

// Writes the response that tells of a request that could not be understood.
void Refuse(const Variables& variables, const HttpError& error, RequestState* state);

}  // namespace tavithumb::apps::web
