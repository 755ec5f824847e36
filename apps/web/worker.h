// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>

#include "web/request_state.h"

namespace tavithumb::apps::web {

// What a worker is given for one request.
struct Turn {
  RequestState* state;
  // Tells the parent that making is over: the deadline no longer applies, and another request may be made meanwhile.
  std::function<void()> startSending;
};

// Answers the requests that arrive on `channel`, as connections, one after the other: standard input and output are the
// connection meanwhile. Returns after a thousand requests, after one that has decoded a file, that found one damaged,
// or after which something is left behind (an open file, a child, memory, unsent output), and when the parent closes
// the channel. The parent follows `state`, and gets a byte when there is news: that a request is done only if others
// wait for that, or if no other arrives for a while.
void RunWorkerLoop(int channel, RequestState* state, const std::function<void(const Turn&)>& answer);

}  // namespace tavithumb::apps::web
