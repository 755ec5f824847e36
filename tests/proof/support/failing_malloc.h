// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::proof {

// From now on this process's allocations are counted; the `nth` fails, counted from 1, and with `forEver` those after
// it as well; with 0 none fails. Under a sanitizer, which allocates itself, nothing is counted and none fails.
void StartFailingAllocations(unsigned nth, bool forEver);

// The number of allocations.
unsigned StopFailingAllocations();

}  // namespace tavithumb::proof
