// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded into the command before the C library: appends the arguments of each tool that takes stills to the file
// $PROBE_FILE. If $PROBE_STILLS is "missing", they are not installed; if it is "hang", they ignore the request to stop.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

template <typename Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int access(const char* path, int mode) noexcept {
  if (Variable("PROBE_STILLS") == "missing" && std::string(path).find("/usr/bin/ffmpeg") == 0) {
    errno = ENOENT;
    return -1;
  }
  return Real<int (*)(const char*, int)>("access")(path, mode);
}

__attribute__((visibility("default"))) int execv(const char* /*path*/, char* const* argv) noexcept {
  std::ofstream noted(Variable("PROBE_FILE"), std::ios::app);
  for (char* const* argument = argv; *argument != nullptr; ++argument) noted << *argument << ' ';
  noted << std::endl;
  const char* const hang[] = {"/bin/sh", "-c", "trap '' TERM; while :; do sleep 1; done", nullptr};
  if (Variable("PROBE_STILLS") == "hang") argv = const_cast<char* const*>(hang);
  return Real<int (*)(const char*, char* const*)>("execv")(argv[0], argv);
}
}
