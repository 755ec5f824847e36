// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>

namespace tavithumb::apps::web {

enum Status {
  kBadRequest = 400,
  kForbidden = 403,
  kNotFound = 404,
  kMethodNotAllowed = 405,
  kUnsupportedMediaType = 415,
  kUnprocessableContent = 422,
  kInternalServerError = 500,
  kServiceUnavailable = 503,
  kGatewayTimeout = 504,
};

// A request that gets no content: the status and the reason, one line for people.
class HttpError : public std::runtime_error {
 public:
  HttpError(Status status, const std::string& reason) : std::runtime_error(reason), status_(status) {}
  Status Code() const { return status_; }

 private:
  Status status_;
};

// What lies outside, is hidden or does not exist looks the same to everybody.
HttpError NotFound();

// The whole CGI response that tells of `error`; without its body for a HEAD request.
std::string ErrorResponse(const HttpError& error, bool withBody);

}  // namespace tavithumb::apps::web
