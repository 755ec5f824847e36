// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>

namespace tavithumb::apps {

// Runs `work`, which may crash, in a process of its own, which has limits and is stopped after five minutes. Returns
// its text, of which 64 bytes come back, or "crashed". Throws std::system_error if there can't be such a process.
std::string RunInDecoderProcess(const std::function<std::string()>& work);

}  // namespace tavithumb::apps
