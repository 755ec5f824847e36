// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

namespace tavi {

// Copies owner, group, access ACL and mode of the open file or directory `from`, whose facts are `wanted`, to `to`.
// Both may be mere locations (O_PATH). Only the superuser may change owners, and some volumes store no owners, ACLs or
// modes: what is refused is skipped, and the rest is reduced so that nobody gets rights that they don't have on `from`.
// False with errno set when the volume fails.
bool CopyAccessRights(int from, const struct stat& wanted, int to);

}  // namespace tavi
