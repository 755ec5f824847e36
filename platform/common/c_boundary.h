// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cerrno>
#include <exception>

namespace tavi {

// Returns what `body` returns, or `failure` with errno ENOMEM when it runs out of memory, which is the only reason for
// exceptions here: none may leave a C function. Thread cancellation, which isn't a std::exception, passes through.
template <typename Result, typename Body>
Result AtCBoundary(Result failure, const Body& body) {
  try {
    return body();
  } catch (const std::exception&) {
    errno = ENOMEM;
    return failure;
  }
}

}  // namespace tavi
