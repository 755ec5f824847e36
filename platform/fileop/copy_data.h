// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

namespace tavi {

// Copies the content of the file open at `from`, of `size` bytes or more by now, into the empty file open at `to`;
// holes stay holes. False with errno set when it can't.
bool CopyData(int from, int to, off_t size);

// Copies the attributes whose names begin with "user.", as far as the volume stores them.
void CopyUserAttributes(int from, int to);

}  // namespace tavi
