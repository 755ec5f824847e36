// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/limited_child.h"

#include "system/soft_limit.h"
#include "system/supervisor.h"

namespace tavithumb::apps {

int RunLimited(const ChildLimits& limits, int channel, const std::function<void(int channel)>& work) {
  ChildProcess child;
  child.channel = channel;
  child.diesWithParent = true;
  child.work = [&] {
    const SoftLimit cores(RLIMIT_CORE, 0);
    const BoundedProcessorTime processorTime(limits.processorSeconds);
    const SoftLimit files(RLIMIT_FSIZE, limits.fileBytes);
    work(channel);
  };
  return Supervisor::Run(child, Clock::now() + limits.time).status;
}

}  // namespace tavithumb::apps
