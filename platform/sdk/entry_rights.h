// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "common/access_rights.h"

namespace tavi {

// The rights on the directory of a source's entries, so that a thumbnail is as private as its source: those who may
// read the source may search and read the directory, nobody else may. Of these, those who may write in the source's
// folder may write. Whoever has made the directory in another user's place always may.

// Gives them to the new directory `to`. False with errno set if the volume fails.
bool GiveEntryRights(const AccessRights& folder, const AccessRights& source, int to);

// Gives them to the existing directory `to` if they are not what it has, and if this process may. Its owner stays.
bool UpdateEntryRights(const AccessRights& folder, const AccessRights& source, int to);

// The mode under which a directory may be made before it gets these rights.
mode_t ModeBeforeEntryRights(const AccessRights& folder, const AccessRights& source);

}  // namespace tavi
