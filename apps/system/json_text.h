// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace tavithumb::apps {

// Sets `key` to `name`. Where the bytes are not UTF-8, U+FFFD stands for them once the object is dumped, and
// "<key>_hex" carries all bytes exactly.
void SetName(nlohmann::ordered_json* object, const std::string& key, const std::string& name);

// The object as one line, line end included.
std::string JsonLine(const nlohmann::ordered_json& object);

}  // namespace tavithumb::apps
