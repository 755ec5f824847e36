// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <istream>
#include <string>
#include <string_view>

#include "common/fs_kind_codes.h"

namespace tavi {

// The kind of a file system by its number from statfs. FUSE, one number for many file systems, counts as local here.
FsKind KindOfMagic(std::uint32_t magic);

// A mounted file system: its type ("fuse.sshfs", "fuseblk", "virtiofs") and its source ("host:/photos", "/dev/sdb1").
struct Mount {
  std::string type;
  std::string source;
};

// The mount with the device number `device` in a table in the format of /proc/self/mountinfo; empty strings if it isn't
// listed. Blanks in the source stay escaped ("\040").
Mount FindMount(std::istream& mountinfo, dev_t device);

// The kind of a FUSE mount by its type and source; local for unknown ones, and always for plain "fuseblk".
FsKind KindOfFuse(const Mount& mount);

// The kind of a block device's file system by its properties in udev's database ("E:ID_FS_TYPE=exfat"), or by the first
// 512 bytes of the device. Local for unknown ones.
FsKind KindOfUdevProperties(std::istream& properties);
FsKind KindOfBootSector(std::string_view sector);

}  // namespace tavi
