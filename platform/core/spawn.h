// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <spawn.h>
#include <sys/types.h>

namespace tavi {

// A descriptor of the caller, above 2, that becomes the child's standard input (0) or output (1).
struct Redirection {
  int fd;
  int target;
};

// Everything about starting a program that allocates memory. The constructor throws std::bad_alloc.
class PreparedSpawn {
 public:
  explicit PreparedSpawn(const Redirection* redirection);
  ~PreparedSpawn();
  PreparedSpawn(const PreparedSpawn&) = delete;
  PreparedSpawn& operator=(const PreparedSpawn&) = delete;

  // Returns 0, or an error number if it can't be started. Allocates no memory.
  int Start(const char* path, const char* const* argv, pid_t* child) const;

 private:
  void PrepareStandardDescriptors(const Redirection* redirection);
  void PrepareSignals();

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

// Starts the program at `path` without a shell; -1 with errno set if it can't be started. The child gets the caller's
// environment, default signal handling where a caller is likely to have changed it, and only descriptors 0 to 2:
// `redirection` (may be null) where it applies, else standard input from /dev/null, and the caller's standard output
// and error, or /dev/null where the caller has none to pass on. The cost does not depend on the caller's memory.
pid_t Spawn(const char* path, const char* const* argv, const Redirection* redirection);

// Waits for this child only. Returns its exit status, or -1 if a signal killed it or its status is unknown.
int WaitFor(pid_t child);

}  // namespace tavi
