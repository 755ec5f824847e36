// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "command/batch/work.h"

namespace tavithumb::apps::command {

// The work of a forked worker: each message that arrives on the socket `channel` is the NUL-terminated path of a file,
// and is answered with reports. Tools create their temporary files in the folder `scratch`, which is removed at the
// end. Returns when the other side has closed the channel.
void RunWorkerLoop(int channel, const std::string& scratch, const Order& order);

}  // namespace tavithumb::apps::command
