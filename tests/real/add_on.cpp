// SPDX-License-Identifier: GPL-3.0-or-later
// Linked into a test program, before the library and its platform: the add-on with another convert seems to be
// installed, and is the one of this build.
#include <dlfcn.h>
#include <tavi/core.h>
#include <unistd.h>

#include <cstring>

extern "C" __attribute__((visibility("default"))) int access(const char* path, int mode) noexcept {
  if (std::strcmp(path, "/var/packages/Codexa/enabled") == 0) return 0;
  using Access = int (*)(const char*, int);
  return reinterpret_cast<Access>(dlsym(RTLD_NEXT, "access"))(path, mode);
}

__attribute__((visibility("default"))) int TLIBCExecv(const char* path, const char* const* argv, int wait) {
  const bool isAddOn = std::strcmp(path, "/var/packages/Codexa/target/usr/bin/convert") == 0;
  using Execv = int (*)(const char*, const char* const*, int);
  return reinterpret_cast<Execv>(dlsym(RTLD_NEXT, "TLIBCExecv"))(isAddOn ? TAVITHUMB_CONVERT : path, argv, wait);
}
