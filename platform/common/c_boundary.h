// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cerrno>
#include <exception>

namespace tavi {

// What `body` returns, or `failure` with errno ENOMEM when it runs out of memory, the only reason for an exception
// here: none may leave a C function. What unwinds a cancelled thread is no std::exception and passes.
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
