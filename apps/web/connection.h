// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "web/scgi.h"

namespace tavithumb::apps::web {

// The variables of the request that arrives at a web server's connection; waits for all of them.
// Throws HttpError 400 when it is malformed or ends too early.
Variables ReadScgi(int connection);

// The CGI variables that this process was started with.
Variables ReadEnvironment();

// Writes a whole response and ends the connection. Never waits for a web server that doesn't read.
void Respond(int connection, const std::string& response);

// Says that nothing more follows, and takes what the web server has sent in vain: closing a connection with unread
// data would be a reset, which can overtake the response.
void EndResponse(int connection);

}  // namespace tavithumb::apps::web
