// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "thumbs/request.h"
#include "web/scgi.h"

namespace tavithumb::apps::web {

enum class Route {
  kThumb,
  kOriginal,
  kDownload,  // the original, for any program but a browser
  kFacts,     // what is known of the original
  kList,
  kDates,  // when the photos of a folder were taken
};

// A parsed request. No file has been looked up.
struct Target {
  Route route;
  std::string prefix;             // of all URLs of this program, without a trailing slash
  std::vector<std::string> path;  // decoded names, none of them "", ".", "..", or with a slash or a NUL byte
  Request request;                // of a thumbnail
  bool isHead;
  bool wantsHtml;     // a list as an HTML page
  std::string after;  // the name after which dates continue, "" for the first
};

// Throws HttpError 400, 404 or 405 with the reason for an invalid request.
Target ParseTarget(const Variables& variables);

// The value of a variable, "" if it is not set.
std::string ValueOf(const Variables& variables, const std::string& name);

}  // namespace tavithumb::apps::web
