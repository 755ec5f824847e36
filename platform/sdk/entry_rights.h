// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "common/access_rights.h"

namespace tavi {

// The rights on the directory of a source's entries, so that a thumbnail is as private as its source: those who may
// read the source may search and read the directory, nobody else may. Of these, those who may write in the source's
// folder may write. Whoever has made the directory in another user's place always may.

// Gives them to the new directory `to`. False with errno set if the volume fails.
bool GiveEntryRights(const AccessRights& folder, const AccessRights& source, int to);

// Gives them to the existing directory `to` if they are not what it has, and if this process may. Its owner stays.
bool UpdateEntryRights(const AccessRights& folder, const AccessRights& source, int to);

// The rights of a directory of `store` that mirrors `folder`. It belongs to the store's owner; the group, the others
// and those in the ACL of the folder keep such rights as are in `kept`: ACL_READ, ACL_EXECUTE.
AccessRights MirroredRights(const AccessRights& store, AccessRights folder, std::uint16_t kept);

// Gives the existing directory `to` these rights if they are not what it has, and if this process may. Its owner stays.
bool UpdateRights(const AccessRights& wanted, int to);

// The mode under which a directory may be made before it gets these rights.
mode_t ModeBeforeEntryRights(const AccessRights& folder, const AccessRights& source);

}  // namespace tavi
