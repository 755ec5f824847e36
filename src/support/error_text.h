// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cerrno>
#include <cstring>

namespace tavithumb {

// The text of a C library error number, for a log line. Allocates nothing; thread-safe.
class ErrorText {
 public:
  explicit ErrorText(int error) : text_(strerror_r(error, buffer_, sizeof buffer_)) {}
  ErrorText(const ErrorText&) = delete;
  ErrorText& operator=(const ErrorText&) = delete;

  const char* c_str() const { return text_; }

 private:
  char buffer_[1024];
  const char* text_;
};

}  // namespace tavithumb
