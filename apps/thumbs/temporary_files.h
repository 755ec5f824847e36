// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <string>

namespace tavithumb::apps {

// Creates a new folder; `pattern` ends with "XXXXXX". Throws std::system_error.
std::string MakeScratchFolder(std::string pattern);

// Makes tools that this process starts from now on create their temporary files there.
void UseScratchFolder(const std::string& folder);

// Removes the embedded previews that the library extracted in `process`, which has terminated.
void RemovePreviews(pid_t process);

}  // namespace tavithumb::apps
