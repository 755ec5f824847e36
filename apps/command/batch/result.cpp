// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/result.h"

#include <nlohmann/json.hpp>

#include "system/json_text.h"
#include "system/text.h"

namespace tavithumb::apps::command {

std::string ResultLine(const std::string& name, const Result& result, bool isDryRun) {
  std::vector<std::string> parts;
  const auto add = [&parts](const std::string& what, const std::vector<std::string>& sizes) {
    if (!sizes.empty()) parts.push_back(what + " " + Join(sizes, ", "));
  };
  add(isDryRun ? "would make" : "made", result.made);
  add("found", result.found);
  add("not needed", result.notNeeded);
  if (!result.failures.empty()) parts.emplace_back("failed");
  return name + ": " + (parts.empty() ? "nothing to make" : Join(parts, "; ")) + "\n";
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
  if (result.byLibrary.empty()) {
    object["by_library"] = nullptr;
  } else {
    object["by_library"] = result.byLibrary;
  }
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
