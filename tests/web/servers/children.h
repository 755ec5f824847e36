// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <vector>

#include "site.h"

namespace tavithumb::test {

// The processes that a site's program has started; zombies too.
std::vector<pid_t> ChildrenOf(const Site& site);

// Those that answer a request.
std::vector<pid_t> BusyChildrenOf(const Site& site);

void AwaitIdleWorkers(const Site& site);

}  // namespace tavithumb::test
