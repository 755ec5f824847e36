// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/info.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "command/folder_totals.h"
#include "command/output.h"
#include "command/table.h"
#include "system/descriptors.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "system/text.h"
#include "thumbs/facts.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {
namespace {

const Row heading = {"KIND", "TYPE",    "SIZE",   "LENGTH", "ORIENTATION", "ROTATION", "MIRROR",
                     "HEIC", "PREVIEW", "COLOUR", "TAKEN",  "CAMERA",      "FILE"};

const char* YesNo(bool value) {
  return value ? "yes" : "no";
}

std::string OrDash(const std::string& text) {
  return text.empty() ? "-" : Printable(text);
}

// Hours, minutes and seconds: 1:02:03.
std::string LengthText(double length) {
  if (length == 0) return "-";
  const auto seconds = static_cast<long>(std::min(std::round(length), 1e9));
  std::array<char, 32> text = {};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), "%ld:%02ld:%02ld", seconds / 3600, seconds / 60 % 60, seconds % 60));
  return text.data();
}

Row RowOfVideo(const std::string& name, const Facts& facts) {
  const std::string size = facts.width == 0 ? "-" : PixelSize(facts.width, facts.height);
  return {"video", "-", size, LengthText(facts.seconds), "-", "-", "-", "-", "-", "-", "-", "-", Printable(name)};
}

Row RowOf(const std::string& name, const Facts& facts) {
  if (facts.isVideo) return RowOfVideo(name, facts);
  return {"image",
          facts.mimeType,
          PixelSize(facts.width, facts.height),
          "-",
          std::to_string(facts.orientation),
          std::to_string(facts.quarterTurns * 90),
          YesNo(facts.isMirrored),
          YesNo(facts.isHeic),
          facts.preview ? PixelSize(facts.preview->width, facts.preview->height) : "-",
          OrDash(facts.colourSpace),
          OrDash(facts.timeTaken),
          OrDash(CameraOf(facts)),
          Printable(name)};
}

std::string JsonLineOf(const std::string& source, const Facts& facts) {
  nlohmann::ordered_json object;
  SetName(&object, "source", source);
  object["kind"] = facts.isVideo ? "video" : "image";
  object.update(JsonFacts(facts));
  object["error"] = nullptr;
  return JsonLine(object);
}

// Fills `facts`, or returns why there are none.
std::optional<Problem> Examine(const std::string& path, Facts* facts) {
  if (std::optional<Problem> problem = CheckSource(path)) return problem;
  const QuietErrors quiet;
  try {
    *facts = ReadFacts(path);
    return std::nullopt;
  } catch (const std::exception&) {
    return ProblemOfException();
  }
}

const Row totalsHeading = {"KIND", "TYPE", "FILES", "DISK", "FOLDER"};

using FileTotals = std::map<FolderTotals::Names, FileTotal>;

Row RowOf(const FolderTotals::Names& names, const FileTotal& total, const std::string& folder) {
  return {names.first, OrDash(names.second), std::to_string(total.files), ByteText(total.disk), Printable(folder)};
}

std::string TableOf(const std::string& folder, const FileTotals& totals) {
  std::vector<Row> rows = {totalsHeading};
  FileTotal all;
  for (const auto& [names, total] : totals) {
    rows.push_back(RowOf(names, total, folder));
    all = {all.files + total.files, all.disk + total.disk};
  }
  rows.push_back(RowOf({"all", ""}, all, folder));
  return Aligned(rows);
}

nlohmann::ordered_json JsonOf(const FileTotals& totals) {
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const auto& [names, total] : totals) {
    array.push_back({{"kind", names.first}, {"type", nullptr}, {"files", total.files}, {"disk", total.disk}});
    if (!names.second.empty()) SetName(&array.back(), "type", names.second);
  }
  return array;
}

// True if all of it could be read.
bool InfoOfFolder(const std::string& name, bool json) {
  FolderTotals folder;
  const FileTotals totals = folder.FilesIn(name);
  WriteOut(json ? folder.JsonLineOf(name, JsonOf(totals)) : TableOf(name, totals));
  return folder.IsComplete();
}

}  // namespace

bool Info(const std::vector<std::string>& files, bool json) {
  bool allExamined = true;
  std::vector<Row> rows = {heading};
  for (const std::string& name : files) {
    const std::string path = AbsolutePath(name);
    if (IsFolder(path)) {
      if (!InfoOfFolder(name, json)) allExamined = false;
      continue;
    }
    Facts facts;
    const std::optional<Problem> problem = Examine(path, &facts);
    if (problem) {
      ReportProblem(name, *problem);
      allExamined = false;
    }
    if (json) WriteOut(problem ? JsonProblem("source", path, *problem) : JsonLineOf(path, facts));
    if (!json && !problem) rows.push_back(RowOf(name, facts));
  }
  if (rows.size() > 1) WriteOut(Aligned(rows));
  return allExamined;
}

}  // namespace tavithumb::apps::command
