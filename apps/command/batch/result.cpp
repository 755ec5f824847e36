// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/result.h"

#include <nlohmann/json.hpp>

#include "system/json_text.h"

namespace tavithumb::apps::command {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Failure, size, reason, remedy)

void to_json(nlohmann::json& json, const Result& result) {
  json = {{"made", result.made},
          {"found", result.found},
          {"notNeeded", result.notNeeded},
          {"failures", result.failures},
          {"bytes", result.bytes}};
}

void from_json(const nlohmann::json& json, Result& result) {
  json.at("made").get_to(result.made);
  json.at("found").get_to(result.found);
  json.at("notNeeded").get_to(result.notNeeded);
  json.at("failures").get_to(result.failures);
  json.at("bytes").get_to(result.bytes);
}

std::string JsonResult(const std::string& path, const Result& result, double milliseconds) {
  nlohmann::ordered_json object;
  SetName(&object, "source", path);
  object["made"] = result.made;
  object["found"] = result.found;
  object["not_needed"] = result.notNeeded;
  object["failed"] = nlohmann::ordered_json::array();
  object["bytes"] = result.bytes;
  object["milliseconds"] = milliseconds;
  object["error"] = nullptr;
  for (const Failure& failure : result.failures) {
    if (failure.size.empty()) {
      object["error"] = failure.reason;
    } else {
      object["failed"].push_back({{"size", failure.size}, {"error", failure.reason}});
    }
  }
  return JsonLine(object);
}

}  // namespace tavithumb::apps::command
