// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded before the C library: replaces the folders for temporary files by a folder of the test's, and sets the
// clock forward.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

int Open(int folder, const std::string& path, int flags) {
  const bool isTemporary = path == "/tmp/" || path == "/var/tmp/";
  const std::string opened = (isTemporary ? Variable("TEMPORARY_FOLDERS") : "") + path;
  return static_cast<int>(syscall(SYS_openat, folder, opened.c_str(), flags, 0));
}

}  // namespace

extern "C" {

// The program opens folders and existing files only through these.
__attribute__((visibility("default"))) int openat(int folder, const char* path, int flags, ...) {
  return Open(folder, path, flags);
}
__attribute__((visibility("default"))) int openat64(int folder, const char* path, int flags, ...) {
  return Open(folder, path, flags);
}

__attribute__((visibility("default"))) time_t time(time_t* result) noexcept {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const time_t later = now.tv_sec + std::atol(Variable("SECONDS_LATER").c_str());
  if (result != nullptr) *result = later;
  return later;
}
}
