// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <string>

#include "common/c_boundary.h"
#include "common/descriptor.h"
#include "common/transfer.h"
#include "exported.h"
#include "sdk/fs_kind.h"

namespace tavi {
namespace {

// Reports running out of memory as an exception, not as the end of the file.
std::ifstream OpenText(const std::string& path) {
  std::ifstream file(path);
  file.exceptions(std::ios::badbit);
  return file;
}

// NTFS, exFAT and FAT all have the type "fuseblk". Any user can read udev's database; the superuser can also read the
// device itself.
FsKind KindOfBlockDevice(const Mount& mount, dev_t device) {
  std::ifstream properties =
      OpenText("/run/udev/data/b" + std::to_string(major(device)) + ":" + std::to_string(minor(device)));
  if (KindOfUdevProperties(properties) == kFatFS) return kFatFS;
  const Descriptor file(open(mount.source.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  std::array<char, 512> sector;
  const ssize_t got = file.IsOpen() ? ReadSome(file.Get(), sector.data(), sector.size()) : 0;
  return got <= 0 ? kLocalFS : KindOfBootSector({sector.data(), static_cast<std::size_t>(got)});
}

int FsTypeOf(const char* path) {
  struct statfs volume;
  if (statfs(path, &volume) != 0) return -1;
  const auto magic = static_cast<std::uint32_t>(volume.f_type);
  if (magic != FUSE_SUPER_MAGIC) return KindOfMagic(magic);

  struct stat entry;
  if (stat(path, &entry) != 0) return -1;
  std::ifstream mountinfo = OpenText("/proc/self/mountinfo");
  const Mount mount = FindMount(mountinfo, entry.st_dev);
  return mount.type == "fuseblk" ? KindOfBlockDevice(mount, entry.st_dev) : KindOfFuse(mount);
}

}  // namespace
}  // namespace tavi

int TAVIGetFSType(const char* path, int) {
  return tavi::AtCBoundary(-1, [=] { return tavi::FsTypeOf(path); });
}
