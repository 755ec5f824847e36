// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavithumb::test {

// For forked processes: changes what some system calls of the calling process do from now on.

inline bool Install(std::vector<sock_filter>& filter) {
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// SYS_renameat2 stands for calls with flags only. False when the system has no such filters, as under emulation.
inline bool FilterCalls(const std::vector<long>& calls, std::uint32_t action) {
  constexpr std::uint32_t number = offsetof(seccomp_data, nr), flags = offsetof(seccomp_data, args[4]);
  std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number)};
  for (const long call : calls) {
    const bool hasFlags = call == SYS_renameat2;
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0,
                              static_cast<std::uint8_t>(hasFlags ? 4 : 1)));
    if (hasFlags) {
      filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, flags));
      filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 1));
      filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, action));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  return Install(filter);
}

// They fail with `error`.
inline bool RefuseCalls(const std::vector<long>& calls, int error) {
  return FilterCalls(calls, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error));
}

// They kill the process.
inline bool DieAtCalls(const std::vector<long>& calls) {
  const rlimit noDump{0, 0};
  setrlimit(RLIMIT_CORE, &noDump);
  return FilterCalls(calls, SECCOMP_RET_KILL_PROCESS);
}

// lseek() doesn't know SEEK_DATA, or SEEK_HOLE.
inline bool RefuseSeeks(int whence) {
  std::vector<sock_filter> filter{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_lseek, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(whence), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  return Install(filter);
}

// Makes the calling process a superuser who can't change owners.
inline bool DropChownCapability() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) != 0) return false;
  data[0].effective &= ~(1U << CAP_CHOWN);
  return syscall(SYS_capset, &header, data) == 0;
}

// The system calls that may set a mode, depending on the C library.
inline std::vector<long> ModeCalls() {
#ifdef SYS_chmod
  return {SYS_fchmod, SYS_fchmodat, SYS_chmod};
#else
  return {SYS_fchmod, SYS_fchmodat};
#endif
}

}  // namespace tavithumb::test
