// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/http_error.h"

#include <gtest/gtest.h>

namespace tavithumb::apps::web {
namespace {

struct ErrorRow {
  HttpStatus status;
  std::string line;
  std::string more;
};

const ErrorRow kErrorRows[] = {
    {kBadRequest, "400 Bad Request", ""},
    {kForbidden, "403 Forbidden", ""},
    {kNotFound, "404 Not Found", ""},
    {kMethodNotAllowed, "405 Method Not Allowed", "Allow: GET, HEAD\r\n"},
    {kUnsupportedMediaType, "415 Unsupported Media Type", ""},
    {kUnprocessableContent, "422 Unprocessable Content", ""},
    {kInternalServerError, "500 Internal Server Error", ""},
    {kServiceUnavailable, "503 Service Unavailable", "Retry-After: 1\r\n"},
    {kGatewayTimeout, "504 Gateway Timeout", ""},
};

TEST(Errors, AreCompleteResponses) {
  for (const ErrorRow& row : kErrorRows) {
    EXPECT_EQ(ErrorResponse({row.status, "reason"}, true),
              "Status: " + row.line +
                  "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: 7\r\nCache-Control: no-store\r\n"
                  "X-Content-Type-Options: nosniff\r\n" +
                  row.more + "\r\nreason\n");
  }
}

TEST(Errors, OmitOnlyTheBodyForHead) {
  for (const ErrorRow& row : kErrorRows) {
    const std::string whole = ErrorResponse({row.status, "reason"}, true);
    EXPECT_EQ(ErrorResponse({row.status, "reason"}, false) + "reason\n", whole);
  }
}

TEST(Errors, LookTheSameForEverythingMissing) {
  EXPECT_EQ(NotFound().Code(), kNotFound);
  EXPECT_STREQ(NotFound().what(), "there is nothing here");
}

}  // namespace
}  // namespace tavithumb::apps::web
