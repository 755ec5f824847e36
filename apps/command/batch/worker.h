// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "command/batch/work.h"

namespace tavithumb::apps::command {

// Of either side.
constexpr std::size_t longestMessage = 65536;

// One message of a worker: what has come of its file so far, and what it begins to make; or, with no name of an entry,
// what has come of it in the end.
struct Report {
  Result result;
  Making making;
};
void to_json(nlohmann::json& json, const Report& report);
void from_json(const nlohmann::json& json, Report& report);

// Makes this process, which has just been forked, a worker: each message that comes on the socket `line` is the path
// of a file, a NUL at its end, which it reports on there. Its tools put their temporary files into `scratch`. It ends
// with the line.
[[noreturn]] void BeWorker(int line, const std::string& scratch, const Order& order);

}  // namespace tavithumb::apps::command
