// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tavi {

// Extended attributes of an open file or directory. The descriptor may be an O_PATH one.

// The attribute's value; nothing if it does not exist or can't be read.
std::optional<std::string> GetXattr(int fd, const char* name);

// False with errno set if the volume can't store it or this process may not set it.
bool SetXattr(int fd, const char* name, const std::string& value);
bool RemoveXattr(int fd, const char* name);

// The names of all attributes; empty if they can't be listed.
std::vector<std::string> ListXattrs(int fd);

// The path of an open descriptor, for calls that don't accept O_PATH.
std::string PathOfDescriptor(int fd);

}  // namespace tavi
