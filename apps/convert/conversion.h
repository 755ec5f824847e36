// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "convert/arguments.h"

namespace tavithumb::apps::convert {

// Makes the thumbnail by the maker, in a process of its own with limits, with the size and orientation that convert
// would give it. False if convert is to make it: where the result would be another, or the maker fails. The destination
// is unchanged then.
bool Perform(const Conversion& conversion);

}  // namespace tavithumb::apps::convert
