// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <string>

#include "command/batch/work.h"

namespace tavithumb::apps::command {

// A forked worker. Root's processes the files of one user's folders, as that user.
struct WorkerPlace {
  int channel;           // a socket
  std::string scratch;   // a folder for the temporary files of tools, removed at the end
  bool isRoots = false;  // whether it was started by root
  uid_t user = 0;        // if so: who it works as
};

// Its work: each message that arrives on the channel is the NUL-terminated absolute path of a file, and is answered
// with reports. Returns when the other side has closed the channel.
void RunWorkerLoop(const WorkerPlace& place, const Order& order);

}  // namespace tavithumb::apps::command
