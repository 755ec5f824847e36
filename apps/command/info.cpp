// SPDX-License-Identifier: GPL-3.0-or-later
#include "info.h"

#include <algorithm>
#include <array>
#include <optional>

#include "common/descriptors.h"
#include "common/names.h"
#include "common/reasons.h"
#include "facts.h"
#include "output.h"

namespace tavithumb::apps::command {
namespace {

// A line of the table. The file comes last: its width on a terminal is nobody's business.
using Row = std::array<std::string, 9>;

const Row heading = {"KIND", "TYPE", "SIZE", "ORIENTATION", "ROTATION", "MIRROR", "HEIC", "PREVIEW", "FILE"};

const char* YesNo(bool value) {
  return value ? "yes" : "no";
}

std::string PixelSize(std::uint32_t width, std::uint32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

Row RowOf(const std::string& name, const Facts& facts) {
  if (facts.isVideo) return {"video", "-", "-", "-", "-", "-", "-", "-", Printable(name)};
  return {"image",
          facts.mimeType,
          PixelSize(facts.width, facts.height),
          std::to_string(facts.orientation),
          std::to_string(facts.quarterTurns * 90),
          YesNo(facts.isMirrored),
          YesNo(facts.isHeic),
          facts.preview ? PixelSize(facts.preview->width, facts.preview->height) : "-",
          Printable(name)};
}

std::string Aligned(const std::vector<Row>& rows) {
  std::array<std::size_t, std::tuple_size_v<Row>> widths = {};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string table;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) table += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    table += row.back() + "\n";
  }
  return table;
}

nlohmann::ordered_json JsonPreview(const std::optional<Preview>& preview) {
  if (!preview) return nullptr;
  return {{"mime_type", preview->mimeType}, {"width", preview->width}, {"height", preview->height}};
}

std::string JsonFacts(const std::string& source, const Facts& facts) {
  nlohmann::ordered_json object;
  SetName(&object, "source", source);
  object["kind"] = facts.isVideo ? "video" : "image";
  if (!facts.isVideo) {
    object["mime_type"] = facts.mimeType;
    object["width"] = facts.width;
    object["height"] = facts.height;
    object["orientation"] = facts.orientation;
    object["rotation"] = facts.quarterTurns;
    object["mirror"] = facts.isMirrored;
    object["heic"] = facts.isHeic;
    object["preview"] = JsonPreview(facts.preview);
  }
  object["error"] = nullptr;
  return JsonLine(object);
}

std::string JsonProblem(const std::string& source, const Problem& problem) {
  nlohmann::ordered_json object;
  SetName(&object, "source", source);
  object["error"] = problem.reason;
  return JsonLine(object);
}

// Fills `facts`, or tells why there are none.
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

}  // namespace

bool Info(const std::vector<std::string>& files, bool json) {
  bool allExamined = true;
  std::vector<Row> rows = {heading};
  for (const std::string& name : files) {
    const std::string path = AbsolutePath(name);
    Facts facts;
    const std::optional<Problem> problem = Examine(path, &facts);
    if (problem) {
      ReportProblem(name, *problem);
      allExamined = false;
    }
    if (json) WriteOut(problem ? JsonProblem(path, *problem) : JsonFacts(path, facts));
    if (!json && !problem) rows.push_back(RowOf(name, facts));
  }
  if (rows.size() > 1) WriteOut(Aligned(rows));
  return allExamined;
}

}  // namespace tavithumb::apps::command
