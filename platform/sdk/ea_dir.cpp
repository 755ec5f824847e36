// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "common/descriptor.h"
#include "exported.h"
#include "sdk/ea_layout.h"

namespace tavi {
namespace {

// Opened for its place alone, so that a folder that can't be listed serves too.
Descriptor OpenPlace(int parent, const std::string& path, int flags) {
  return Descriptor(openat(parent, path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | flags));
}

// Gives a directory just made the owner and mode of `folder`. Only the superuser can give files away: for others
// that step's failure is none. A place takes no fchmod(), so its name among the open descriptors stands in for it.
bool Liken(const Descriptor& made, const struct stat& folder) {
  if (fchownat(made.Get(), "", folder.st_uid, folder.st_gid, AT_EMPTY_PATH) != 0 && geteuid() == 0) return false;
  return chmod(("/proc/self/fd/" + std::to_string(made.Get())).c_str(), folder.st_mode & 07777) == 0;
}

bool IsTrustedIn(const Descriptor& parent, const Descriptor& place) {
  struct stat parentFacts, facts;
  if (!place.IsOpen() || fstat(parent.Get(), &parentFacts) != 0 || fstat(place.Get(), &facts) != 0) return false;
  if (IsTrusted(facts, parentFacts)) return true;
  errno = EPERM;
  return false;
}

// Makes one directory unless it is there, and opens its place. One made at the same moment by another is as good,
// unless it is a stranger's; its maker gives it owner and mode. Links are not followed: what is made stays in the
// source's folder.
Descriptor MakeAndOpen(const Descriptor& parent, const std::string& name, const struct stat& folder) {
  const bool made = mkdirat(parent.Get(), name.c_str(), folder.st_mode & 0777) == 0;
  if (!made && errno != EEXIST) return Descriptor();
  Descriptor place = OpenPlace(parent.Get(), name, O_NOFOLLOW);
  if (!made) return IsTrustedIn(parent, place) ? std::move(place) : Descriptor();
  if (!place.IsOpen() || Liken(place, folder)) return place;
  const int reason = errno;
  unlinkat(parent.Get(), name.c_str(), AT_REMOVEDIR);
  errno = reason;
  return Descriptor();
}

bool MakeEADirectory(const std::string& folderPath, const std::string& name) {
  const Descriptor folder = OpenPlace(AT_FDCWD, folderPath.empty() ? "." : folderPath, 0);
  struct stat facts;
  if (!folder.IsOpen() || fstat(folder.Get(), &facts) != 0) return false;
  const Descriptor root = MakeAndOpen(folder, kEARoot, facts);
  return root.IsOpen() && MakeAndOpen(root, name, facts).IsOpen();
}

}  // namespace
}  // namespace tavi

int TAVIEAMKDir(int, const char* eaDir) {
  const tavi::SplitPath directory = tavi::Split(eaDir);
  const std::string rootPath = directory.folder.substr(0, directory.folder.find_last_not_of('/') + 1);
  const tavi::SplitPath root = tavi::Split(rootPath);
  if (!tavi::IsEntryName(directory.name) || root.name != tavi::kEARoot) {
    errno = EINVAL;
    return -1;
  }
  return tavi::MakeEADirectory(root.folder, directory.name) ? 0 : -1;
}
