// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

const char* Phrase(HttpStatus status) {
  switch (status) {
    case kBadRequest:
      return "Bad Request";
    case kForbidden:
      return "Forbidden";
    case kNotFound:
      return "Not Found";
    case kMethodNotAllowed:
      return "Method Not Allowed";
    case kUnsupportedMediaType:
      return "Unsupported Media Type";
    case kUnprocessableContent:
      return "Unprocessable Content";
    case kInternalServerError:
      return "Internal Server Error";
    case kServiceUnavailable:
      return "Service Unavailable";
    case kGatewayTimeout:
      return "Gateway Timeout";
  }
  return "";
}

}  // namespace

HttpError NotFound() {
  return {kNotFound, "there is nothing here"};
}

std::string ErrorResponse(const HttpError& error, bool withBody) {
  const std::string body = error.what() + std::string("\n");
  std::string response = "Status: " + std::to_string(error.Code()) + " " + Phrase(error.Code()) + "\r\n";
  response += "Content-Type: text/plain; charset=utf-8\r\n";
  response += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  response += "Cache-Control: no-store\r\n";
  response += "X-Content-Type-Options: nosniff\r\n";
  if (error.Code() == kMethodNotAllowed) response += "Allow: GET, HEAD\r\n";
  if (error.Code() == kServiceUnavailable) response += "Retry-After: 1\r\n";
  return response + "\r\n" + (withBody ? body : "");
}

}  // namespace tavithumb::apps::web
