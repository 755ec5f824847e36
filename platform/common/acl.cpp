// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/acl.h"

#include <endian.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "common/xattr.h"

namespace tavi {
namespace {

constexpr char kAttribute[] = "system.posix_acl_access";
constexpr std::uint16_t kAllRights = ACL_READ | ACL_WRITE | ACL_EXECUTE;
constexpr std::uint16_t kNamed = ACL_USER | ACL_GROUP;

}  // namespace

std::optional<Acl> Acl::Of(int fd) {
  const std::optional<std::string> value = GetXattr(fd, kAttribute);
  if (!value) return std::nullopt;
  Acl acl({});
  posix_acl_xattr_entry raw;
  for (std::size_t at = sizeof(posix_acl_xattr_header); at + sizeof raw <= value->size(); at += sizeof raw) {
    std::memcpy(&raw, value->data() + at, sizeof raw);
    acl.entries_.push_back({le16toh(raw.e_tag), le16toh(raw.e_perm), le32toh(raw.e_id)});
  }
  return acl;
}

void Acl::RemoveFrom(int fd) {
  RemoveXattr(fd, kAttribute);
}

bool Acl::GiveTo(int fd) const {
  const posix_acl_xattr_header header{htole32(POSIX_ACL_XATTR_VERSION)};
  std::string value(reinterpret_cast<const char*>(&header), sizeof header);
  for (const Entry& entry : entries_) {
    const posix_acl_xattr_entry raw{htole16(entry.tag), htole16(entry.rights), htole32(entry.id)};
    value.append(reinterpret_cast<const char*>(&raw), sizeof raw);
  }
  return SetXattr(fd, kAttribute, value);
}

void Acl::LimitGroupToOthers() {
  const std::uint16_t limit = Allowed(ACL_OTHER);
  for (Entry& entry : entries_) {
    if (entry.tag == ACL_GROUP_OBJ) entry.rights &= limit;
  }
}

mode_t Acl::ModeWithout(mode_t mode) const {
  const bool namesSome =
      std::any_of(entries_.begin(), entries_.end(), [](const Entry& entry) { return (entry.tag & kNamed) != 0; });
  const std::uint16_t mask = Allowed(ACL_MASK), named = namesSome ? Allowed(kNamed) & mask : kAllRights;
  const mode_t group = Allowed(ACL_GROUP_OBJ) & mask & named, others = mode & named;
  return (mode & ~static_cast<mode_t>(S_IRWXG | S_IRWXO)) | group << 3 | (others & S_IRWXO);
}

std::uint16_t Acl::Allowed(std::uint16_t tags) const {
  std::uint16_t rights = kAllRights;
  for (const Entry& entry : entries_) {
    if ((entry.tag & tags) != 0) rights &= entry.rights;
  }
  return rights;
}

}  // namespace tavi
