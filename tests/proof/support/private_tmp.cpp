// SPDX-License-Identifier: GPL-3.0-or-later
#include "private_tmp.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace tavithumb::proof {
namespace {

constexpr int kCannotRunHere = 77;

void Need(bool done, const char* what) {
  if (done) return;
  std::fprintf(stderr, "%s: %s; this proof needs root with mounts of its own\n", what, std::strerror(errno));
  std::exit(kCannotRunHere);
}

}  // namespace

void EnterPrivateTmp() {
  if (geteuid() != 0) errno = EPERM;
  Need(geteuid() == 0, "unshare");
  Need(unshare(CLONE_NEWNS) == 0, "unshare");
  Need(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount /");
  for (const char* folder : {"/tmp", "/var/tmp"}) {
    Need(mount("proof", folder, "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0, folder);
  }
  unsetenv("TMPDIR");  // what the proof makes lies there too
}

}  // namespace tavithumb::proof
