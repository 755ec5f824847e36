// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// The reader of standard output has closed it, as `head` does when it has enough: the program ends without a message.
struct OutputClosed : std::runtime_error {
  OutputClosed() : std::runtime_error("standard output was closed") {}
};

// Writes to standard output without buffering. Throws OutputClosed or std::system_error if not all of it could be
// written.
void WriteOut(const std::string& text);

// Formatted for JSON output: with two decimals.
double MillisecondsSince(std::chrono::steady_clock::time_point start);

// Writes `text` to standard output as WriteOut() does, or to standard error if standard output `isTaken` by JSON.
void WriteSummary(const std::string& text, bool isTaken);

// Writes "tavithumb: <message>" and a line end to standard error.
void WriteError(const std::string& message);

// Writes the one line about `name`, as it was typed, to standard error.
void ReportProblem(const std::string& name, const Problem& problem);

// The JSON line for a file at `path` that had a problem; `key` names the path in it.
std::string JsonProblem(const std::string& key, const std::string& path, const Problem& problem);

}  // namespace tavithumb::apps::command
