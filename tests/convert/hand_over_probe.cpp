// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded into tavithumb-convert before the C library: writes what it hands over to the file $HANDED_OVER: the program,
// the arguments and the environment, each followed by a zero byte, and before them whether it hands over blocked
// signals or the role of a subreaper. With $NO_CONVERT, there is no program to hand over to. Reading a file whose name
// begins with "crash" crashes it, and one with "hang" never ends; a destination with "refused" can't be replaced.
#include <dlfcn.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

extern char** environ;

namespace {

void WriteList(std::ofstream* file, char* const* list) {
  for (; *list != nullptr; ++list) *file << *list << '\0';
}

bool IsChanged() {
  sigset_t blocked;
  int isSubreaper = 0;
  prctl(PR_GET_CHILD_SUBREAPER, &isSubreaper);
  return sigprocmask(SIG_BLOCK, nullptr, &blocked) != 0 || sigisemptyset(&blocked) == 0 || isSubreaper != 0;
}

void MisbehaveOnRequest(int descriptor) {
  char name[PATH_MAX] = {};
  if (readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), name, sizeof name - 1) == -1) return;
  while (std::strstr(name, "/hang") != nullptr) pause();
  if (std::strstr(name, "/crash") == nullptr) return;
  signal(SIGSEGV, SIG_DFL);  // a sanitizer installs its own handler
  raise(SIGSEGV);
}

using Pread = ssize_t (*)(int, void*, size_t, off64_t);

}  // namespace

extern "C" __attribute__((visibility("default"))) int execv(const char* path, char* const* argv) noexcept {
  std::ofstream file(std::getenv("HANDED_OVER"), std::ios::binary);
  file << (IsChanged() ? "changed" : "unchanged") << '\0' << path << '\0';
  WriteList(&file, argv);
  WriteList(&file, environ);
  file.close();
  if (std::getenv("NO_CONVERT") != nullptr) {
    errno = ENOENT;
    return -1;
  }
  using Execv = int (*)(const char*, char* const*);
  return reinterpret_cast<Execv>(dlsym(RTLD_NEXT, "execv"))(path, argv);
}

extern "C" __attribute__((visibility("default"))) ssize_t pread64(int descriptor, void* buffer, size_t count,
                                                                  off64_t offset) {
  MisbehaveOnRequest(descriptor);
  return reinterpret_cast<Pread>(dlsym(RTLD_NEXT, "pread64"))(descriptor, buffer, count, offset);
}

extern "C" __attribute__((visibility("default"))) int rename(const char* from, const char* to) noexcept {
  if (std::strstr(to, "/refused") != nullptr) {
    errno = EACCES;
    return -1;
  }
  using Rename = int (*)(const char*, const char*);
  return reinterpret_cast<Rename>(dlsym(RTLD_NEXT, "rename"))(from, to);
}
