// SPDX-License-Identifier: GPL-3.0-or-later
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <fstream>

#include "exported.h"
#include "sdk/fs_kind.h"

int TAVIGetFSType(const char* path, int) {
  struct statfs volume;
  if (statfs(path, &volume) != 0) return -1;
  const auto magic = static_cast<std::uint32_t>(volume.f_type);
  if (magic != FUSE_SUPER_MAGIC) return tavi::KindOfMagic(magic);

  struct stat entry;
  if (stat(path, &entry) != 0) return -1;
  std::ifstream mountinfo("/proc/self/mountinfo");
  return tavi::KindOfFuse(tavi::MountedType(mountinfo, entry.st_dev));
}
