// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tavithumb::apps::web {

// The CGI variables of one request, whichever way they came.
using Variables = std::map<std::string, std::string>;

// The longest header block that a request may have, in bytes.
constexpr std::size_t maxScgiHeaders = 65536;

// How many bytes the whole netstring has that `start` begins: length, colon, headers and comma. Nothing while its
// length is still incomplete. Throws HttpError 400 for what can't become one, or is too long.
std::optional<std::size_t> ScgiLength(std::string_view start);

// The variables of a whole SCGI netstring. Throws HttpError 400 when it is malformed.
Variables ParseScgi(std::string_view netstring);

}  // namespace tavithumb::apps::web
