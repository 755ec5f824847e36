// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

namespace tavi {

// Copies the content of the open file `from`, which had `size` bytes and may have grown, to the empty file `to`. Holes
// stay holes. False with errno set on failure.
bool CopyData(int from, int to, off_t size);

// Copies the extended attributes "user.*", as far as the volume supports them.
void CopyUserAttributes(int from, int to);

}  // namespace tavi
