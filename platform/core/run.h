// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavi {

// Starts the program at `path` as Spawn() does and waits for it. Its exit status, or -1 when it could not be started
// or died of a signal. In a caller that ignores SIGCHLD, the thread that calls this takes no signal until then but
// those that end the process.
int Run(const char* path, const char* const* argv);

}  // namespace tavi
