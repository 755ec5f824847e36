// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tavi {

// Extended attributes of an open file or directory. The descriptor may be a mere location (O_PATH).

// Its value; nothing when there is no such attribute or it can't be read.
std::optional<std::string> GetXattr(int fd, const char* name);

// False with errno set when the volume doesn't store it, or this process may not.
bool SetXattr(int fd, const char* name, const std::string& value);
bool RemoveXattr(int fd, const char* name);

// Their names; empty when they can't be listed.
std::vector<std::string> ListXattrs(int fd);

// The path of an open descriptor, for calls that don't accept a mere location.
std::string PathOfDescriptor(int fd);

}  // namespace tavi
