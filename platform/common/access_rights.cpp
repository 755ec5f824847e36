// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/access_rights.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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

// The owner may be a member of the group.
bool GiveOwnerOrGroup(int to, uid_t user, gid_t group) {
  struct stat now;
  if (fstat(to, &now) != 0) return false;
  if (now.st_uid == user && now.st_gid == group) return true;
  if (GiveOwner(to, user, group)) return true;
  return IsRefusal(errno) && (GiveOwner(to, kUnchanged, group) || IsRefusal(errno));
}

bool GiveMode(int to, mode_t mode) {
  if (fchmod(to, mode) == 0) return true;
  if (errno == EBADF && chmod(PathOfDescriptor(to).c_str(), mode) == 0) return true;
  return IsRefusal(errno);
}

bool CopyAccessRights(int from, const struct stat& wanted, int to) {
  return GiveAccessRights({wanted, Acl::Of(from)}, to);
}

AccessRights LimitedTo(const struct stat& given, AccessRights wanted) {
  const bool isOtherGroup = given.st_gid != wanted.facts.st_gid;
  wanted.facts.st_mode = ModeFor(given, wanted.facts);
  wanted.facts.st_uid = given.st_uid;
  wanted.facts.st_gid = given.st_gid;
  if (isOtherGroup && wanted.acl) wanted.acl->LimitGroupToOthers();
  if (isOtherGroup && !wanted.acl) wanted.facts.st_mode = WithGroupLimitedToOthers(wanted.facts.st_mode);
  return wanted;
}

bool GiveAccessRights(const AccessRights& wanted, int to) {
  struct stat given;
  if (!GiveOwnerOrGroup(to, wanted.facts.st_uid, wanted.facts.st_gid) || fstat(to, &given) != 0) return false;
  const AccessRights rights = LimitedTo(given, wanted);
  Acl::RemoveFrom(to);  // which may come from the folder's default ACL
  const bool isWithoutAcl = rights.acl && !rights.acl->GiveTo(to);
  return GiveMode(to, isWithoutAcl ? rights.acl->ModeWithout(rights.facts.st_mode) : rights.facts.st_mode);
}

}  // namespace tavi
