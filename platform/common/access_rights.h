// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

namespace tavi {

// Gives what is open at `to` the owner, group, access ACL and mode of what is open at `from`, whose facts are `wanted`;
// both may be places (O_PATH). Only the superuser can give files away, and many a volume keeps no owners, ACLs or
// modes: what is refused stays away, and then nobody gets rights that he doesn't have at `from`. False with errno set
// when the volume fails.
bool CopyAccessRights(int from, const struct stat& wanted, int to);

}  // namespace tavi
