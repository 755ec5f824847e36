// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/limited_child.h"

#include <algorithm>

#include "system/supervisor.h"

namespace tavithumb::apps {
namespace {

void Limit(__rlimit_resource resource, rlim_t maximum) {
  rlimit limit = {};
  getrlimit(resource, &limit);
  limit.rlim_cur = std::min(limit.rlim_max, maximum);
  setrlimit(resource, &limit);
}

}  // namespace

int RunLimited(const ChildLimits& limits, int channel, const std::function<void(int channel)>& work) {
  Supervisor supervisor;
  ChildProcess child;
  child.channel = channel;
  child.diesWithParent = true;
  child.work = [&] {
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_CPU, limits.processorSeconds);
    Limit(RLIMIT_FSIZE, limits.fileBytes);
    work(channel);
  };
  const pid_t process = supervisor.Start(child);
  supervisor.SetDeadline(process, Clock::now() + limits.time);
  for (;;) {
    for (const EndedChild& ended : supervisor.Collect()) return ended.status;
    supervisor.Wait();
  }
}

}  // namespace tavithumb::apps
