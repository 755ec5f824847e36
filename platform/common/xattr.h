// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tavi {

// Extended attributes of what is open at a descriptor, which may be a place (O_PATH).

// Its value; nothing when there is no such attribute, or it can't be read.
std::optional<std::string> GetXattr(int fd, const char* name);

// False with errno set when the volume doesn't store it, or this process may not.
bool SetXattr(int fd, const char* name, const std::string& value);
bool RemoveXattr(int fd, const char* name);

// Their names; empty when they can't be listed.
std::vector<std::string> ListXattrs(int fd);

// The path by which calls that refuse a place reach it.
std::string PathOfPlace(int fd);

}  // namespace tavi
