// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tavithumb::apps::web {

// The CGI variables of one request, received by CGI or SCGI.
using Variables = std::map<std::string, std::string>;

// The maximum size of a request's header block in bytes.
constexpr std::size_t maxScgiHeaders = 65536;

// The size in bytes of the whole netstring that starts with `start`: length, colon, headers and comma. Nothing while
// the length is still incomplete. Throws HttpError 400 if it is malformed or too large.
std::optional<std::size_t> ScgiLength(std::string_view start);

// The variables of a complete SCGI netstring. Throws HttpError 400 if it is malformed.
Variables ParseScgi(std::string_view netstring);

}  // namespace tavithumb::apps::web
