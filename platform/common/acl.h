// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavi {

// An access ACL: who has which rights besides those that the mode tells. With one, the mode's group bits are its mask,
// the most that anybody but the owner and others may have, and the owning group has an entry of its own.
class Acl {
 public:
  // That of what is open at `fd`; nothing when it has none.
  static std::optional<Acl> Of(int fd);

  // Leaves what is open at `fd` with its mode alone.
  static void RemoveFrom(int fd);

  // False with errno set when the volume stores none, or this process may not give it.
  bool GiveTo(int fd) const;

  // Leaves the owning group no more than all others have.
  void LimitGroupToOthers();

  // What is left of `mode`, which goes with this ACL, without it: those whom it names fall among the owning group or
  // the others, which therefore get no right that it denies to one of those.
  mode_t ModeWithout(mode_t mode) const;

 private:
  struct Entry {
    std::uint16_t tag;
    std::uint16_t rights;
    std::uint32_t id;
  };

  // What all entries of these tags allow; all rights when there is none.
  std::uint16_t Allowed(std::uint16_t tags) const;

  std::vector<Entry> entries_;
};

}  // namespace tavi
