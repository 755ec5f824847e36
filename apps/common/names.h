// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace tavithumb::apps {

// File names are any bytes but NUL. These ways lead from what was typed to what the library, people and JSON get.

// `name` behind the current folder unless it is absolute; "" stays "". Links and ".." are left as they are.
std::string AbsolutePath(const std::string& name);

// The last part of a path.
std::string BaseName(const std::string& path);

// `name` for people, always one line: control characters, backslashes and bytes that are not UTF-8 as "\n", "\\" or
// "\xHH".
std::string Printable(const std::string& name);

// Sets `key` to `name`. Where the bytes are not UTF-8, U+FFFD stands for them once the object is dumped, and
// "<key>_hex" carries all bytes exactly.
void SetName(nlohmann::ordered_json* object, const std::string& key, const std::string& name);

// The object as one line, line end included.
std::string JsonLine(const nlohmann::ordered_json& object);

}  // namespace tavithumb::apps
