// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

namespace tavi {

// Copies owner, group, access ACL and mode of the open file or directory `from`, whose facts are `wanted`, to `to`.
// Both may be O_PATH descriptors. Only the superuser may change owners, and some volumes store no owners, ACLs or
// modes: a refused step is skipped, and the other rights are reduced so that no user gets rights that they don't have
// on `from`. False with errno set if the volume fails.
bool CopyAccessRights(int from, const struct stat& wanted, int to);

}  // namespace tavi
