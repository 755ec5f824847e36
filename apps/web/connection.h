// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "web/scgi.h"

namespace tavithumb::apps::web {

// The variables of the request that arrives at a web server's connection; waits for all of them. Nothing when the web
// server has gone without asking. Throws HttpError 400 when the request is malformed or ends too early.
std::optional<Variables> ReadScgi(int connection);

// The CGI variables that this process was started with.
Variables ReadEnvironment();

// Writes a whole response and ends the connection. Never waits for a web server that doesn't read.
void Respond(int connection, const std::string& response);

// Says that nothing more follows, and takes what the web server has sent in vain: closing a connection with unread
// data would be a reset, which can overtake the response.
void EndResponse(int connection);

}  // namespace tavithumb::apps::web
