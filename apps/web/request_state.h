// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <atomic>
#include <string>

namespace tavithumb::apps::web {

enum class Progress {
  kMaking,   // the request is read, and its answer made
  kSending,  // the answer is being sent, which may take long
  kDone,     // it is complete, and the worker is ready for another request
  kLast,     // it is complete, and the worker exits
};

// The state of one request, in memory that the worker shares with its parent, which also reads it after the worker's
// death.
struct RequestState {
  std::atomic<Progress> progress;
  std::atomic<bool> isAwaited;      // set by the parent: other requests wait until this one is done
  std::atomic<bool> hasAnswered;    // bytes of the response may have been written
  std::atomic<bool> isWorkersLast;  // a file was decoded, or is damaged: the worker answers no other request
  std::array<char, 512> request;    // for the log; NUL-terminated, like the next one
  std::array<char, 64> scratch;     // the folder of its tools' temporary files, while it exists

  void SetRequest(const std::string& text) { request[text.copy(request.data(), request.size() - 1)] = '\0'; }

  void Reset() {
    progress = Progress::kMaking;
    isAwaited = false;
    hasAnswered = false;
    isWorkersLast = false;
    SetRequest("a request");
    scratch.front() = '\0';
  }
};

}  // namespace tavithumb::apps::web
