// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>

namespace tavithumb::apps::web {

enum HttpStatus {
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

// Why a request gets an error response: the status, and the reason as one line for people.
class HttpError : public std::runtime_error {
 public:
  HttpError(HttpStatus status, const std::string& reason) : std::runtime_error(reason), status_(status) {}
  HttpStatus Code() const { return status_; }

 private:
  HttpStatus status_;
};

// The same error for everything that is outside the roots, hidden or missing, so that clients can't tell them apart.
HttpError NotFound();

// The complete CGI response for `error`; without a body for HEAD requests.
std::string ErrorResponse(const HttpError& error, bool withBody);

}  // namespace tavithumb::apps::web
