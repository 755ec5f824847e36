// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/privacy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <tavi/sdk.h>
#include <tavithumb/util.h>

#include "system/file_descriptor.h"
#include "thumbs/store.h"

namespace tavithumb::apps {
namespace {

constexpr mode_t readable = S_IRUSR | S_IRGRP | S_IROTH;

bool HasAcl(const std::string& path) {
  return getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

bool IsClosedToOthers(const std::string& folder) {
  struct stat record = {};
  return stat(folder.c_str(), &record) == 0 && (record.st_mode & S_IRWXO) == 0;
}

// Whether the mode of the thumbnail can't let in those who may read the source.
bool NeedsFolder(const struct stat& source, bool hasAcl, const struct stat& thumbnail) {
  const bool isForGroup = (source.st_mode & S_IRGRP) != 0;
  return hasAcl || source.st_uid != thumbnail.st_uid || (isForGroup && source.st_gid != thumbnail.st_gid);
}

mode_t ModeFor(const struct stat& source, const struct stat& thumbnail) {
  const mode_t mode = (source.st_mode & readable) | S_IRUSR | S_IWUSR;
  const bool isSameGroup = source.st_gid == thumbnail.st_gid;
  return isSameGroup || (mode & S_IROTH) != 0 ? mode : mode & ~static_cast<mode_t>(S_IRGRP);
}

}  // namespace

void RestrictToReadersOf(const std::string& source, const std::string& thumbnail) {
  const FileDescriptor file(open(thumbnail.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat photo = {}, record = {};
  if (stat(source.c_str(), &photo) != 0 || fstat(file.Number(), &record) != 0 || !S_ISREG(record.st_mode)) return;
  const bool isOpen = NeedsFolder(photo, HasAcl(source), record) && IsClosedToOthers(file::Dirname(thumbnail));
  chmod(("/proc/self/fd/" + std::to_string(file.Number())).c_str(),
        isOpen ? readable | S_IWUSR : ModeFor(photo, record));
}

void RestrictFoldersToReadersOf(const std::string& source) {
  for (const std::string& folder : EntryFoldersOf(source)) UpdateRightsOf(folder);
}

void UpdateRightsOf(const std::string& folder) {
  struct stat record = {};
  if (lstat(folder.c_str(), &record) == 0 && S_ISDIR(record.st_mode)) TAVIEAMKDir(1, folder.c_str());
}

}  // namespace tavithumb::apps
