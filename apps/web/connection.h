// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "web/scgi.h"

namespace tavithumb::apps::web {

// Reads the variables of the request on a web server's connection, and waits for all of them. Nothing if the web server
// has closed the connection without a request. Throws HttpError 400 if the request is malformed or incomplete.
std::optional<Variables> ReadScgi(int connection);

// The CGI variables that this process was started with.
Variables ReadEnvironment();

// Writes a whole response and ends the connection. Does not wait for a web server that doesn't read.
void Respond(int connection, const std::string& response);

// Ends the response, and discards unread data from the web server: closing a connection with unread data resets it, and
// the reset can overtake the response.
void EndResponse(int connection);

}  // namespace tavithumb::apps::web
