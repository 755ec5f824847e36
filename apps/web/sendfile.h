// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "web/roots.h"
#include "web/scgi.h"

namespace tavithumb::apps::web {

// The headers by which a program asks a web server to send a file itself: to slow clients too, in parts, and not at all
// to those who have it already.
inline constexpr char kAccelRedirect[] = "X-Accel-Redirect";  // nginx; its value is an address of the server's own
inline constexpr char kSendfile[] = "X-Sendfile";             // lighttpd, Apache; its value is a path

// No root has this name: it begins with a dot.
inline constexpr char storeName[] = ".tavi_store";

// What the web server has announced for one request.
struct Sendfile {
  std::string header;  // "": the program sends the files
  std::string prefix;  // of the addresses of all files, with kAccelRedirect
};

// The web server announces it as TAVITHUMB_SENDFILE: the header's name, and a space and the prefix. Nothing if
// `header`, the configured one, is "". Throws HttpError 500 if that is not announced: the client would get no file at
// all.
Sendfile ReadSendfile(const std::string& header, const Variables& variables);

// The header's line for the file at `path`, which is absolute and without links; "" if the program sends the files, or
// this one: a file that is neither below a root nor in the store, or whose address would begin with storeName like
// those in the store.
std::string SendfileLine(const Sendfile& sendfile, const Roots& roots, const std::string& path);

}  // namespace tavithumb::apps::web
