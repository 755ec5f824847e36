// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/remover.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

#include "command/output.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

Problem NotRemoved(int error) {
  return {Problem::Kind::kForbidden, "it cannot be removed: " + std::generic_category().message(error),
          "make its folder writable, or run as its owner"};
}

// "" if it is not known.
std::string WorkingDirectory() {
  std::error_code unknown;
  return std::filesystem::current_path(unknown);
}

}  // namespace

Remover::Remover(const RemovalStyle& style) : style_(style), start_(WorkingDirectory()) {}

std::string Remover::Absolute(const std::string& path) const {
  return path.front() == '/' || start_.empty() ? path : JoinPath(start_, path);
}

bool Remover::RemoveFile(const Folder& folder, const std::string& name, const struct stat& record,
                         const std::string& reason) {
  if (!IsRemoved(folder, name, 0)) return false;
  if (WasReported(record)) return true;
  const auto bytes = static_cast<std::uint64_t>(record.st_size);
  ++files_;
  bytes_ += bytes;
  ReportRemoval(folder.PathOf(name), reason, bytes);
  return true;
}

bool Remover::RemoveFolder(const Folder& parent, const std::string& name) {
  const std::optional<struct stat> record = parent.Stat(name);
  if (!record || !IsRemoved(parent, name, AT_REMOVEDIR)) return false;
  if (!WasReported(*record)) ReportRemoval(parent.PathOf(name), "nothing is left in it", 0);
  return true;
}

void Remover::Report(const std::string& path, const Problem& problem) {
  hasProblems_ = true;
  ReportProblem(path, problem);
  if (style_.json) WriteOut(JsonProblem("path", Absolute(path), problem));
}

std::string Remover::Totals() const {
  return std::to_string(files_) + " " + std::to_string(bytes_) + " " + std::to_string(static_cast<int>(hasProblems_));
}

void Remover::SetTotals(const std::string& totals) {
  std::istringstream(totals) >> files_ >> bytes_ >> hasProblems_;
}

bool Remover::Finish() const {
  if (style_.json) {
    WriteOut(JsonLine({{"files", files_}, {"bytes", bytes_}, {"dry_run", style_.isDryRun}}));
  } else if (!style_.isQuiet) {
    WriteOut((style_.isDryRun ? "would free " : "freed ") + ByteText(bytes_) + " in " + std::to_string(files_) +
             (files_ == 1 ? " file\n" : " files\n"));
  }
  return !hasProblems_;
}

// A file that another process has removed, and a folder that is not empty, count neither as removed nor as a problem.
bool Remover::IsRemoved(const Folder& folder, const std::string& name, int flags) {
  if (style_.isDryRun || unlinkat(folder.Number(), name.c_str(), flags) == 0) return true;
  if (errno != ENOENT && errno != ENOTEMPTY && errno != EEXIST) Report(folder.PathOf(name), NotRemoved(errno));
  return false;
}

bool Remover::WasReported(const struct stat& record) {
  return style_.isDryRun && !reported_.insert({record.st_dev, record.st_ino}).second;
}

void Remover::ReportRemoval(const std::string& path, const std::string& reason, std::uint64_t bytes) const {
  if (!style_.json && style_.isQuiet) return;
  if (!style_.json) {
    WriteOut((style_.isDryRun ? "would remove " : "removed ") + Printable(path) + ": " + reason + "\n");
    return;
  }
  nlohmann::ordered_json object;
  SetName(&object, "path", Absolute(path));
  object["reason"] = reason;
  object["bytes"] = bytes;
  object["removed"] = !style_.isDryRun;
  object["error"] = nullptr;
  WriteOut(JsonLine(object));
}

}  // namespace tavithumb::apps::command
