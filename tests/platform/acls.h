// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <endian.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/xattr.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tavithumb::test {

constexpr char kAccessAcl[] = "system.posix_acl_access";
constexpr char kDefaultAcl[] = "system.posix_acl_default";

struct AclEntry {
  int tag;
  int rights;
  unsigned id = static_cast<unsigned>(ACL_UNDEFINED_ID);
};

// An ACL as the kernel takes and returns it.
inline std::string AclOf(const std::vector<AclEntry>& entries) {
  const posix_acl_xattr_header header{htole32(POSIX_ACL_XATTR_VERSION)};
  std::string acl(reinterpret_cast<const char*>(&header), sizeof header);
  for (const AclEntry& entry : entries) {
    const posix_acl_xattr_entry raw{htole16(static_cast<std::uint16_t>(entry.tag)),
                                    htole16(static_cast<std::uint16_t>(entry.rights)), htole32(entry.id)};
    acl.append(reinterpret_cast<const char*>(&raw), sizeof raw);
  }
  return acl;
}

// Rights of the owner, the owning group and one more user; others have none.
inline std::string AclWithUser(int owner, int group, unsigned user, int rights) {
  return AclOf({{ACL_USER_OBJ, owner},
                {ACL_USER, rights, user},
                {ACL_GROUP_OBJ, group},
                {ACL_MASK, group | rights},
                {ACL_OTHER, 0}});
}

inline bool SetAttribute(const std::string& path, const char* name, const std::string& value) {
  return setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

// "none" when there is no such attribute.
inline std::string Attribute(const std::string& path, const char* name) {
  char value[1024];
  const ssize_t size = getxattr(path.c_str(), name, value, sizeof value);
  return size == -1 ? "none" : std::string(value, static_cast<std::size_t>(size));
}

}  // namespace tavithumb::test
