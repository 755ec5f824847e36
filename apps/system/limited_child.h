// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/resource.h>

#include <chrono>
#include <functional>

namespace tavithumb::apps {

struct ChildLimits {
  rlim_t processorSeconds;
  rlim_t fileBytes;           // of each file that it writes
  std::chrono::seconds time;  // it is stopped afterwards
};

// Runs `work` in a process of its own, without core files, and waits for it; it gets SIGTERM when this process dies.
// `channel`, a descriptor or -1, is passed on to it; standard input, output and error are /dev/null. Returns its status
// as waitpid() does: 0 if `work` returned. Throws std::system_error if there can't be a process.
int RunLimited(const ChildLimits& limits, int channel, const std::function<void(int channel)>& work);

}  // namespace tavithumb::apps
