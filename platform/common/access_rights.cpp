// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/access_rights.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "common/acl.h"
#include "common/xattr.h"

namespace tavi {
namespace {

constexpr auto kUnchanged = static_cast<uid_t>(-1);

// Whether the process lacks permission or the volume lacks support, as opposed to a failing volume.
bool IsRefusal(int reason) {
  return reason == EPERM || reason == EACCES || reason == EINVAL || reason == ENOSYS || reason == EOPNOTSUPP ||
         reason == EOVERFLOW;
}

bool GiveOwner(int to, uid_t user, gid_t group) {
  return fchownat(to, "", user, group, AT_EMPTY_PATH) == 0;
}

// Only the group where the owner is refused: the owner may be one of its members.
bool GiveOwnerOrGroup(int to, const struct stat& wanted) {
  struct stat now;
  if (fstat(to, &now) != 0) return false;
  if (now.st_uid == wanted.st_uid && now.st_gid == wanted.st_gid) return true;
  if (GiveOwner(to, wanted.st_uid, wanted.st_gid)) return true;
  return IsRefusal(errno) && (GiveOwner(to, kUnchanged, wanted.st_gid) || IsRefusal(errno));
}

bool GiveMode(int to, mode_t mode) {
  if (fchmod(to, mode) == 0) return true;
  if (errno == EBADF && chmod(PathOfDescriptor(to).c_str(), mode) == 0) return true;
  return IsRefusal(errno);
}

// A program of another owner or group must not run with the rights of the original's. On directories these bits mean
// something else.
mode_t ModeFor(const struct stat& given, const struct stat& wanted) {
  const mode_t mode = wanted.st_mode & 07777;
  const bool isGiven = given.st_uid == wanted.st_uid && given.st_gid == wanted.st_gid;
  return isGiven || S_ISDIR(wanted.st_mode) ? mode : mode & ~static_cast<mode_t>(S_ISUID | S_ISGID);
}

mode_t WithGroupLimitedToOthers(mode_t mode) {
  return mode & (~static_cast<mode_t>(S_IRWXG) | (mode & S_IRWXO) << 3);
}

}  // namespace

bool CopyAccessRights(int from, const struct stat& wanted, int to) {
  struct stat given;
  if (!GiveOwnerOrGroup(to, wanted) || fstat(to, &given) != 0) return false;
  const bool isOtherGroup = given.st_gid != wanted.st_gid;
  mode_t mode = ModeFor(given, wanted);
  std::optional<Acl> acl = Acl::Of(from);
  Acl::RemoveFrom(to);  // which may come from the folder's default ACL
  if (acl) {
    if (isOtherGroup) acl->LimitGroupToOthers();
    if (!acl->GiveTo(to)) mode = acl->ModeWithout(mode);
  } else if (isOtherGroup) {
    mode = WithGroupLimitedToOthers(mode);
  }
  return GiveMode(to, mode);
}

}  // namespace tavi
