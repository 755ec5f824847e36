// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include "core/spawn.h"

namespace tavi {

// A caller that ignores SIGCHLD gets no exit status from the system, and what it ignores is not ours to change. So a
// process of our own stands between it and the program: one that sends no SIGCHLD when it exits, which is why it can be
// waited for as usual, and that has signal handling of its own, so that the system keeps the program's status for it.

// Whether the system discards the exit status of this process's children.
bool CallerIgnoresChildren();

// Runs the program at `path` as Spawn() starts it, and waits. Its exit status, or -1 when it could not be started or
// died of a signal. Meanwhile the calling thread gets no signals but those that end the process. The cost does not
// depend on the caller's memory.
int RunAside(const char* path, const char* const* argv);

// Starts the program at `path` as Spawn() does, for a WaitFor() later. The process between is a copy of the caller, as
// of fork(), without its descriptors.
pid_t SpawnAside(const char* path, const char* const* argv, const Redirection* redirection);

}  // namespace tavi
