// SPDX-License-Identifier: GPL-3.0-or-later
#include "tavithumb/error.h"

namespace tavithumb {
namespace {

std::string Prefix(int code) {
  return "(E" + std::to_string(code) + ") ";
}

}  // namespace

Error::Error(int code) : std::runtime_error(Prefix(code)), code_(code) {}

Error::Error(int code, const std::string& message)
    : std::runtime_error(Prefix(code) + message), code_(code), message_(message) {}

}  // namespace tavithumb
