// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/output.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "system/json_text.h"
#include "system/text.h"

namespace tavithumb::apps::command {

void WriteOut(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
  if (errno == EPIPE) throw OutputClosed();
  throw std::system_error(errno, std::generic_category(), "standard output");
}

double MillisecondsSince(std::chrono::steady_clock::time_point start) {
  const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
  return std::round(elapsed.count() * 100) / 100;
}

void WriteSummary(const std::string& text, bool isTaken) {
  if (!isTaken) return WriteOut(text);
  std::cerr << text;
}

void WriteError(const std::string& message) {
  std::cerr << "tavithumb: " + message + "\n";
}

void ReportProblem(const std::string& name, const Problem& problem) {
  WriteError(Printable(name) + ": " + problem.reason + "; " + problem.remedy);
}

std::string JsonProblem(const std::string& key, const std::string& path, const Problem& problem) {
  nlohmann::ordered_json object;
  SetName(&object, key, path);
  object["error"] = problem.reason;
  return JsonLine(object);
}

}  // namespace tavithumb::apps::command
