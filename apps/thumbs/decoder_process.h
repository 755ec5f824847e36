// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/resource.h>

#include <functional>
#include <string>

namespace tavithumb::apps {

// What decoding one source may take, in whichever process: processor time, and the size of each file that it writes.
inline constexpr rlim_t mostDecodingSeconds = 120;
inline constexpr rlim_t mostDecodedBytes = rlim_t{64} * 1048576;

// Runs `work`, which may crash, in a process of its own, which has limits and is stopped after five minutes. Returns
// its text, of which 64 bytes come back, or "crashed". Throws std::system_error if there can't be such a process.
std::string RunInDecoderProcess(const std::function<std::string()>& work);

}  // namespace tavithumb::apps
