// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "command/batch/work.h"

namespace tavithumb::apps::command {

// A worker's report on its file: the result so far and the thumbnail that it is about to make; or the final result, if
// `making` names no entry.
struct Report {
  Result result;
  Making making;
};

// The maximum size in bytes of messages between pool and worker, in both directions.
constexpr std::size_t longestMessage = 65536;

std::string Serialise(const Report& report);

// Nothing if `message` is malformed.
std::optional<Report> ParseReport(std::string_view message);

}  // namespace tavithumb::apps::command
