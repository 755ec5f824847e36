// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "command/batch/work.h"

namespace tavithumb::apps::command {

// The work of a forked worker: each message that arrives on the socket `channel` is the path of a file, with a NUL at
// its end, and is answered with reports. Tools put their temporary files into the folder `scratch`, which is removed
// at the end. Returns when the other side has closed the channel.
void RunWorkerLoop(int channel, const std::string& scratch, const Order& order);

}  // namespace tavithumb::apps::command
