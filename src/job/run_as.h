// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

// A block that runs as another user:
//
//   IF_RUN_AS2("root", "libtavithumb", 489) { chown(path, 0, 0); }
//
// The block is skipped if the switch fails. The effective user and group of the whole process are restored after it
// in every case; failures are logged with the given file and line. Real and saved ids don't change.
#define IF_RUN_AS2(user, file, line) if (const _________::__ guard{user, file, line, "IF_RUN_AS2"}; guard)

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the guard's established name
namespace _________ {

class __ {
 public:
  __(const char* user, const char* file, int line, const char* name);
  ~__();
  __(const __&) = delete;
  __& operator=(const __&) = delete;

  explicit operator bool() const { return entered_; }

 private:
  bool Enter(const char* user) const;

  uid_t savedUser_;
  gid_t savedGroup_;
  const char* file_;
  int line_;
  const char* name_;
  bool entered_;
};

}  // namespace _________
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
