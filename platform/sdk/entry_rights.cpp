// SPDX-License-Identifier: GPL-3.0-or-later
#include "sdk/entry_rights.h"

#include <linux/posix_acl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <vector>

namespace tavi {
namespace {

using Entry = Acl::Entry;

constexpr std::uint16_t kUse = ACL_READ | ACL_EXECUTE;
constexpr auto kNoId = static_cast<std::uint32_t>(ACL_UNDEFINED_ID);

std::uint16_t RightsIn(mode_t mode, int shift) {
  return static_cast<std::uint16_t>(mode >> shift & 07);
}

// Linux ignores an ACL whose mask is empty.
Acl AclOf(const AccessRights& file) {
  const mode_t mode = file.facts.st_mode;
  if (file.acl && (mode & S_IRWXG) != 0) return *file.acl;
  return Acl({{ACL_USER_OBJ, RightsIn(mode, 6), kNoId},
              {ACL_GROUP_OBJ, RightsIn(mode, 3), kNoId},
              {ACL_OTHER, RightsIn(mode, 0), kNoId}});
}

// What each user, each group (by their ids) and everybody else (ACL_OTHER) may do with a file.
std::vector<Entry> GrantsOn(const AccessRights& file) {
  const Acl acl = AclOf(file);
  const std::uint16_t mask = acl.Allowed(ACL_MASK);
  std::vector<Entry> grants;
  for (const Entry& entry : acl.Entries()) {
    const auto masked = static_cast<std::uint16_t>(entry.rights & mask);
    if (entry.tag == ACL_USER_OBJ) grants.push_back({ACL_USER, entry.rights, file.facts.st_uid});
    if (entry.tag == ACL_USER || entry.tag == ACL_GROUP) grants.push_back({entry.tag, masked, entry.id});
    if (entry.tag == ACL_GROUP_OBJ) grants.push_back({ACL_GROUP, masked, file.facts.st_gid});
    if (entry.tag == ACL_OTHER) grants.push_back(entry);
  }
  return grants;
}

bool MayAllRead(const AccessRights& source) {
  const std::vector<Entry> grants = GrantsOn(source);
  return std::all_of(grants.begin(), grants.end(), [](const Entry& grant) { return (grant.rights & ACL_READ) != 0; });
}

// Whether a user or group may write in the folder. In a sticky folder, that everybody may does not count: the kernel
// would not protect a directory in which only some others may write from their links.
std::uint16_t WriteRight(const AccessRights& folder, std::uint16_t tag, std::uint32_t id) {
  for (const Entry& grant : GrantsOn(folder)) {
    if (grant.tag == tag && grant.id == id && tag != ACL_OTHER) return grant.rights & ACL_WRITE;
  }
  const bool isSticky = (folder.facts.st_mode & S_ISVTX) != 0;
  return isSticky ? 0 : static_cast<std::uint16_t>(RightsIn(folder.facts.st_mode, 0) & ACL_WRITE);
}

// A source's owner counts as a member of its group.
std::uint16_t WriteRightOf(const Entry& grant, const AccessRights& folder, const AccessRights& source) {
  const std::uint16_t own = WriteRight(folder, grant.tag, grant.id);
  const bool isOwner = grant.tag == ACL_USER && grant.id == source.facts.st_uid && grant.id != folder.facts.st_uid;
  return isOwner ? own | WriteRight(folder, ACL_GROUP, source.facts.st_gid) : own;
}

// The entries of a directory's ACL while it is put together.
class EntryAcl {
 public:
  explicit EntryAcl(const struct stat& directory) : user_(directory.st_uid), group_(directory.st_gid) {}

  void Add(const Entry& grant) {
    if (grant.tag == ACL_OTHER) {
      others_ = grant.rights;
    } else if (grant.tag == ACL_USER) {
      if (grant.id != user_) named_.push_back(grant);
    } else if (grant.id == group_) {
      groupRights_ = grant.rights;
    } else {
      named_.push_back(grant);
    }
  }

  // The rights as mode, and as ACL where the mode can't express them. A directory's group that the source does not
  // know has no more rights than others.
  AccessRights Finish(struct stat directory, std::uint16_t ownerRights) {
    // A group without rights needs an entry only if it is to have less than others.
    const auto isIdle = [this](const Entry& entry) {
      return entry.tag == ACL_GROUP && entry.rights == 0 && others_ == 0;
    };
    named_.erase(std::remove_if(named_.begin(), named_.end(), isIdle), named_.end());
    const std::uint16_t group = groupRights_.value_or(others_);
    std::uint16_t mask = named_.empty() ? group : group | kUse;  // an empty one would put the ACL out of force
    for (const Entry& entry : named_) mask |= entry.rights;
    directory.st_mode = (directory.st_mode & ~07777u) | static_cast<mode_t>(ownerRights << 6 | mask << 3 | others_);
    if (named_.empty()) return {directory, std::nullopt};
    std::vector<Entry> entries = {{ACL_USER_OBJ, ownerRights, kNoId}};
    AppendNamed(ACL_USER, &entries);
    entries.push_back({ACL_GROUP_OBJ, group, kNoId});
    AppendNamed(ACL_GROUP, &entries);
    entries.push_back({ACL_MASK, mask, kNoId});
    entries.push_back({ACL_OTHER, others_, kNoId});
    return {directory, Acl(entries)};
  }

 private:
  void AppendNamed(std::uint16_t tag, std::vector<Entry>* entries) const {
    std::copy_if(named_.begin(), named_.end(), std::back_inserter(*entries),
                 [tag](const Entry& entry) { return entry.tag == tag; });
  }

  std::uint32_t user_;
  std::uint32_t group_;
  std::vector<Entry> named_;
  std::optional<std::uint16_t> groupRights_;
  std::uint16_t others_ = 0;
};

// For a source that not everybody may read, in a directory that has its owner and group already.
AccessRights PrivateRights(const AccessRights& folder, const AccessRights& source, const struct stat& directory) {
  std::uint16_t ownerRights = kUse | ACL_WRITE;
  EntryAcl acl(directory);
  for (Entry grant : GrantsOn(source)) {
    const bool mayRead = (grant.rights & ACL_READ) != 0;
    grant.rights = mayRead ? static_cast<std::uint16_t>(kUse | WriteRightOf(grant, folder, source)) : 0;
    const bool isOfBoth = directory.st_uid == folder.facts.st_uid && directory.st_uid == source.facts.st_uid;
    if (grant.tag == ACL_USER && grant.id == source.facts.st_uid && isOfBoth) ownerRights = grant.rights;
    acl.Add(grant);
  }
  AccessRights rights = acl.Finish(directory, ownerRights);
  rights.facts.st_mode |= folder.facts.st_mode & 07000;
  return rights;
}

// For a world-readable source: the rights of its folder, plus read permission for all users.
AccessRights PublicRights(AccessRights folder) {
  folder.facts.st_mode |= 0555;
  if (!folder.acl) return folder;
  std::vector<Entry> entries = folder.acl->Entries();
  for (Entry& entry : entries) entry.rights |= kUse;
  folder.acl = Acl(entries);
  return folder;
}

// A folder's owner who may not own the source must not own its entries, nor may another user own a directory in which
// the folder's owner is to write.
uid_t OwnerOf(const AccessRights& folder, const AccessRights& source) {
  return folder.facts.st_uid == source.facts.st_uid ? source.facts.st_uid : 0;
}

bool AreSame(const std::optional<Acl>& one, const std::optional<Acl>& other) {
  if (!one || !other) return !one && !other;
  const auto areEqual = [](const Entry& a, const Entry& b) {
    return a.tag == b.tag && a.rights == b.rights && ((a.tag != ACL_USER && a.tag != ACL_GROUP) || a.id == b.id);
  };
  return std::equal(one->Entries().begin(), one->Entries().end(), other->Entries().begin(), other->Entries().end(),
                    areEqual);
}

// Closed to others first, so that nobody has more than the old or the new rights meanwhile.
bool Replace(const AccessRights& wanted, const struct stat& now, int to) {
  const AccessRights rights = LimitedTo(now, wanted);
  if ((rights.facts.st_mode & 07777) == (now.st_mode & 07777) && AreSame(rights.acl, Acl::Of(to))) return true;
  return GiveMode(to, now.st_mode & 07700) && GiveAccessRights(rights, to);
}

bool MayChange(const struct stat& directory) {
  return geteuid() == 0 || geteuid() == directory.st_uid;
}

// To a directory that is given to `owner` first.
bool Give(const AccessRights& folder, const AccessRights& source, uid_t owner, int to) {
  const bool isPublic = MayAllRead(source);
  struct stat given;
  if (!GiveOwnerOrGroup(to, owner, isPublic ? folder.facts.st_gid : source.facts.st_gid)) return false;
  if (fstat(to, &given) != 0) return false;
  return Replace(isPublic ? PublicRights(folder) : PrivateRights(folder, source, given), given, to);
}

}  // namespace

bool GiveEntryRights(const AccessRights& folder, const AccessRights& source, int to) {
  return Give(folder, source, MayAllRead(source) ? folder.facts.st_uid : OwnerOf(folder, source), to);
}

bool UpdateEntryRights(const AccessRights& folder, const AccessRights& source, int to) {
  struct stat now;
  if (fstat(to, &now) != 0) return false;
  return !MayChange(now) || Give(folder, source, now.st_uid, to);
}

AccessRights MirroredRights(const AccessRights& store, AccessRights folder, std::uint16_t kept) {
  const mode_t ofOthers = static_cast<mode_t>(kept << 3 | kept);
  folder.facts.st_uid = store.facts.st_uid;
  folder.facts.st_mode = S_IFDIR | S_IRWXU | (folder.facts.st_mode & ofOthers);
  if (!folder.acl) return folder;
  std::vector<Entry> entries = folder.acl->Entries();
  for (Entry& entry : entries) entry.rights = entry.tag == ACL_USER_OBJ ? kUse | ACL_WRITE : entry.rights & kept;
  folder.acl = Acl(entries);
  if ((folder.facts.st_mode & S_IRWXG) != 0) return folder;
  folder.facts.st_mode = folder.acl->ModeWithout(folder.facts.st_mode);  // an empty mask would put the ACL out of force
  folder.acl.reset();
  return folder;
}

bool UpdateRights(const AccessRights& wanted, int to) {
  struct stat now;
  if (fstat(to, &now) != 0) return false;
  if (!MayChange(now)) return true;
  if (!GiveOwnerOrGroup(to, now.st_uid, wanted.facts.st_gid) || fstat(to, &now) != 0) return false;
  return Replace(wanted, now, to);
}

mode_t ModeBeforeEntryRights(const AccessRights& folder, const AccessRights& source) {
  return folder.facts.st_mode & (MayAllRead(source) ? 0777 : 0700);
}

}  // namespace tavi
