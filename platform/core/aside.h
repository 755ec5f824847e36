// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include "core/spawn.h"

namespace tavi {

// A caller that ignores SIGCHLD gets no exit status from the system, and its signal handling is not ours to change.
// Therefore an intermediate process starts the program. It sends no SIGCHLD when it exits, so that it can be waited for
// as usual, and has its own signal handling, so that the system keeps the program's status for it.

// Whether the system discards the exit status of this process's children.
bool CallerIgnoresChildren();

// Runs the program at `path` as Spawn() starts it, and waits. Returns its exit status, or -1 if it could not be started
// or a signal killed it. Meanwhile the calling thread only gets signals that kill the process. The cost does not depend
// on the caller's memory.
int RunAside(const char* path, const char* const* argv);

// Starts the program at `path` as Spawn() does. Returns the intermediate process, for WaitFor(): a copy of the caller,
// as made by fork(), without its descriptors.
pid_t SpawnAside(const char* path, const char* const* argv, const Redirection* redirection);

}  // namespace tavi
