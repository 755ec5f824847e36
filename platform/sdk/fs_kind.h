// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <istream>
#include <string>

#include "common/fs_kind_codes.h"

namespace tavi {

// What statfs tells by the file system's number. FUSE, one number for many, counts as local here.
FsKind KindOfMagic(std::uint32_t magic);

// What the type of a FUSE mount tells ("fuse.sshfs", "fuseblk", "virtiofs"); local for all that are not known.
FsKind KindOfFuse(const std::string& type);

// The type of the file system mounted with the device number `device`, from a table in the form of
// /proc/self/mountinfo; "" when it isn't in there.
std::string MountedType(std::istream& mountinfo, dev_t device);

}  // namespace tavi
