// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/report.h"

#include <nlohmann/json.hpp>

namespace tavithumb::apps::command {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Failure, size, reason, remedy, kind)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Result, made, found, notNeeded, failures, bytes, sampleMilliseconds, byLibrary)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Making, entry, temporaries, since)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Report, result, making)

std::string Serialise(const Report& report) {
  return nlohmann::json(report).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<Report> ParseReport(std::string_view message) {
  try {
    return nlohmann::json::parse(message).get<Report>();
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

}  // namespace tavithumb::apps::command
