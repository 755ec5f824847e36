// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Processes the file at `path`, unless there is a problem already, and reports the result. Returns whether all is well.
using Work = std::function<bool(const std::string& path, const std::optional<Problem>& problem)>;

// Runs `work` for the file at the absolute `path`, and returns what it returns. Root runs it as the owner of the file's
// folder, in a process of that user's with the same standard output and error, and with the file's path inside that
// folder. Throws std::runtime_error with the message of what `work` has thrown.
bool RunAsOwner(const std::string& path, const Work& work);

// Runs `work` in a process with the same standard output and error, after `prepare`, if that is not null, for which the
// descriptors of this process are still open. Returns the text that `work` returns, or nothing if the process died.
// Throws std::runtime_error with the message of what `work` has thrown.
std::optional<std::string> RunInProcess(const std::function<void()>& prepare, const std::function<std::string()>& work);

}  // namespace tavithumb::apps::command
