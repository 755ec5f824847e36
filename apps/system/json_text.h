// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tavithumb::apps {

// Sets `key` to `name`. If `name` is not UTF-8, invalid bytes become U+FFFD in the output of JsonLine(), and
// "<key>_hex" has the exact bytes.
void SetName(nlohmann::ordered_json* object, const std::string& key, const std::string& name);

// The object as one line, newline included.
std::string JsonLine(const nlohmann::ordered_json& object);

}  // namespace tavithumb::apps
