// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>

#include "common/acl.h"

namespace tavi {

// Owner, group and mode of a file or directory, and its access ACL if it has one.
struct AccessRights {
  struct stat facts;
  std::optional<Acl> acl;
};

// `wanted` for a file that belongs to the user and group in `given`: nobody gets a right through a group that is not
// the wanted one, or through the set-id bits of a program.
AccessRights LimitedTo(const struct stat& given, AccessRights wanted);

// Gives these rights to the open file or directory `to`, which may be an O_PATH descriptor. Only the superuser may
// change owners, and some volumes store no owners, ACLs or modes: a refused step is skipped, and the other rights are
// reduced so that no user gets rights that are not in `wanted`. False with errno set if the volume fails.
bool GiveAccessRights(const AccessRights& wanted, int to);

// The same with the rights of the open file or directory `from`, whose facts are `wanted`.
bool CopyAccessRights(int from, const struct stat& wanted, int to);

// Gives only owner and group; only the group if the owner is refused. False with errno set if the volume fails.
bool GiveOwnerOrGroup(int to, uid_t user, gid_t group);

// Gives only the mode, unless that is refused. False with errno set if the volume fails.
bool GiveMode(int to, mode_t mode);

}  // namespace tavi
