// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/get.h"

#include <tavithumb/libtavithumb.h>

#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "command/as_owner.h"
#include "command/output.h"
#include "system/become.h"
#include "system/descriptors.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "thumbs/answer.h"
#include "thumbs/making.h"
#include "thumbs/reasons.h"
#include "thumbs/rendering.h"

namespace tavithumb::apps::command {
namespace {

struct Answer {
  std::string path;
  std::string outputType;
  std::string mimeType;
  bool needsDelete = false;
  bool isMade = false;
  double milliseconds = 0;
};

// The library's temporary name is unique for one file a second only; this makes it unique within the run.
std::string KeepApart(const std::string& temporary) {
  static unsigned count = 0;
  const std::string unique = temporary + "_" + std::to_string(++count);
  return std::rename(temporary.c_str(), unique.c_str()) == 0 ? unique : temporary;
}

// Fills `answer`, or returns why there is none.
std::optional<Problem> Ask(const std::string& path, const Request& request, Answer* answer) {
  if (std::optional<Problem> problem = CheckSource(path)) return problem;
  const QuietErrors quiet;
  try {
    Thumb job(path, request.options, request.acceptHeic);
    const Resolution resolution = Resolve(request, RenderInChild, &job);
    if (resolution == Resolution::kNone) return WhyNoAnswer(job.GetInfo(), request);
    answer->path = IsTemporary(job) ? KeepApart(job.GetOutputFile()) : job.GetOutputFile();
    answer->outputType = AnswerType(job);
    answer->mimeType = AnswerMimeType(job);
    answer->needsDelete = job.IsNeedDelete();
    answer->isMade = resolution == Resolution::kMade;
    return std::nullopt;
  } catch (const std::exception&) {
    return ProblemOfException();
  }
}

std::string JsonAnswer(const std::string& source, const Answer& answer) {
  nlohmann::ordered_json object;
  SetName(&object, "source", source);
  SetName(&object, "answer", answer.path);
  object["output_type"] = answer.outputType;
  object["mime_type"] = answer.mimeType;
  object["delete"] = answer.needsDelete;
  object["made"] = answer.isMade;
  object["milliseconds"] = answer.milliseconds;
  object["error"] = nullptr;
  return JsonLine(object);
}

void Write(const std::string& path, const Answer& answer, GetFormat format) {
  if (format == GetFormat::kJson) return WriteOut(JsonAnswer(path, answer));
  WriteOut(answer.path + (format == GetFormat::kNulEnded ? '\0' : '\n'));
}

bool GetOne(const std::string& name, const Request& request, GetFormat format) {
  const std::string path = AbsolutePath(name);
  const auto start = std::chrono::steady_clock::now();
  return RunAsOwner(path, [&](const std::string& inside, std::optional<Problem> problem) {
    Answer answer;
    if (!problem) problem = Ask(inside, request, &answer);
    answer.path = PathFromOutside(answer.path, path);
    answer.milliseconds = MillisecondsSince(start);
    if (!problem) Write(path, answer, format);
    if (problem) ReportProblem(name, *problem);
    if (problem && format == GetFormat::kJson) WriteOut(JsonProblem("source", path, *problem));
    return !problem;
  });
}

}  // namespace

bool Get(const std::vector<std::string>& files, const Request& request, GetFormat format) {
  bool allAnswered = true;
  for (const std::string& name : files) {
    if (!GetOne(name, request, format)) allAnswered = false;
  }
  return allAnswered;
}

}  // namespace tavithumb::apps::command
