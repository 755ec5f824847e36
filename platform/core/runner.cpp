// SPDX-License-Identifier: GPL-3.0-or-later
#include <cerrno>
#include <cstdarg>
#include <vector>

#include "core/literal_names.h"
#include "core/run.h"
#include "core/spawn.h"
#include "exported.h"

// The exit status is the result; -1 for a program that could not be started or died of a signal. A program that is
// not waited for (`wait` 0) gives 0 once it was started and stays the caller's child: the caller reaps it, or it
// remains as a zombie until the caller ends.
int TLIBCExecv(const char* path, const char* const* argv, int wait) {
  if (!tavi::TakesNamesLiterally(path, argv)) {
    errno = EPERM;
    return -1;
  }
  if (wait != 0) return tavi::Run(path, argv);
  return tavi::Spawn(path, argv, nullptr) == -1 ? -1 : 0;
}

int TLIBCExecl(const char* path, int flags, ...) {
  if (flags != 0) {
    errno = EINVAL;
    return -1;
  }
  std::vector<const char*> argv{path};
  va_list list;
  va_start(list, flags);
  while (argv.back() != nullptr) argv.push_back(va_arg(list, const char*));
  va_end(list);
  return tavi::Run(path, argv.data());
}
