// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::proof {

// From now on this process's allocations are counted; the `nth` fails, counted from 1, and those after it where
// `forEver` says so; none fails with 0. Under a sanitizer, which allocates itself, nothing is counted and none fails.
void StartFailingAllocations(unsigned nth, bool forEver);

// How many there were.
unsigned StopFailingAllocations();

}  // namespace tavithumb::proof
