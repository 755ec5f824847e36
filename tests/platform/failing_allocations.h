// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>

namespace tavithumb::test {

// Calls `body` repeatedly in this thread: the first time its first allocation by `new` throws, the second time its
// second one and so on, until no allocation fails. Returns the number of failures.
int FailEachAllocation(const std::function<void()>& body);

}  // namespace tavithumb::test
