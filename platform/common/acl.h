// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tavi {

// An access ACL: rights of further users and groups, besides those in the mode. With an ACL the mode's group bits are
// its mask, an upper limit for everybody but the owner and others, and the owning group has an entry of its own.
class Acl {
 public:
  // Rights of a tag as in <linux/posix_acl.h>; `id` is that of ACL_USER and ACL_GROUP.
  struct Entry {
    std::uint16_t tag;
    std::uint16_t rights;
    std::uint32_t id;
  };

  explicit Acl(std::vector<Entry> entries) : entries_(std::move(entries)) {}

  // The ACL of an open file or directory; nothing if it has none.
  static std::optional<Acl> Of(int fd);

  // Removes the ACL, and keeps the mode.
  static void RemoveFrom(int fd);

  const std::vector<Entry>& Entries() const { return entries_; }

  // False with errno set if the volume stores no ACLs or this process may not set one.
  bool GiveTo(int fd) const;

  // Reduces the rights of the owning group to those of others.
  void LimitGroupToOthers();

  // The mode for a copy without this ACL, whose mode is `mode`. Users and groups that the ACL names then count as the
  // owning group or as others, which therefore get no right that the ACL denies to any of them.
  mode_t ModeWithout(mode_t mode) const;

  // The rights that all entries with these tags have; all rights if there is no such entry.
  std::uint16_t Allowed(std::uint16_t tags) const;

 private:
  std::vector<Entry> entries_;
};

}  // namespace tavi
