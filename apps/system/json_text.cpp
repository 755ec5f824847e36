// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/json_text.h"

#include <nlohmann/json.hpp>

#include "system/text.h"

namespace tavithumb::apps {

void SetName(nlohmann::ordered_json* object, const std::string& key, const std::string& name) {
  (*object)[key] = name;
  if (IsUtf8(name)) return;
  (*object)[key + "_hex"] = Hex(name);
}

std::string JsonLine(const nlohmann::ordered_json& object) {
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tavithumb::apps
