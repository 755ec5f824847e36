// SPDX-License-Identifier: GPL-3.0-or-later
#include <cerrno>
#include <cstdarg>
#include <new>
#include <vector>

#include "common/c_boundary.h"
#include "core/aside.h"
#include "core/literal_names.h"
#include "core/spawn.h"
#include "exported.h"

namespace tavi {
namespace {

int Run(const char* path, const char* const* argv) {
  if (CallerIgnoresChildren()) return RunAside(path, argv);
  const pid_t child = Spawn(path, argv, nullptr);
  return child == -1 ? -1 : WaitFor(child);
}

int Execv(const char* path, const char* const* argv, bool waits) {
  if (!TakesNamesLiterally(path, argv)) {
    errno = EPERM;
    return -1;
  }
  if (waits) return Run(path, argv);
  return Spawn(path, argv, nullptr) == -1 ? -1 : 0;
}

// The arguments up to the null pointer, which is the last one.
std::vector<const char*> ArgumentsOf(const char* path, va_list& list) {
  std::vector<const char*> argv{path};
  while (argv.back() != nullptr) argv.push_back(va_arg(list, const char*));
  return argv;
}

}  // namespace
}  // namespace tavi

// Returns the exit status; -1 if the program could not be started or a signal killed it. Without waiting (`wait` 0),
// returns 0 once the program has started; it stays the caller's child: the caller reaps it, or it remains a zombie
// until the caller exits.
int TLIBCExecv(const char* path, const char* const* argv, int wait) {
  return tavi::AtCBoundary(-1, [=] { return tavi::Execv(path, argv, wait != 0); });
}

// Arguments that can't be checked are not run.
int TLIBCTakesNamesLiterally(const char* path, const char* const* argv) try {
  return tavi::TakesNamesLiterally(path, argv) ? 1 : 0;
} catch (const std::bad_alloc&) {
  return 0;
}

int TLIBCExecl(const char* path, int flags, ...) {
  if (flags != 0) {
    errno = EINVAL;
    return -1;
  }
  va_list list;
  va_start(list, flags);
  const int result = tavi::AtCBoundary(-1, [&] { return tavi::Run(path, tavi::ArgumentsOf(path, list).data()); });
  va_end(list);
  return result;
}
