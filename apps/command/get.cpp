// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/get.h"

#include <poll.h>
#include <tavithumb/libtavithumb.h>

#include <chrono>
#include <cstdio>
#include <deque>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

#include "command/as_owner.h"
#include "command/output.h"
#include "command/query.h"
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

// Of a path.
std::string End(GetFormat format) {
  return {format == GetFormat::kNulEnded ? '\0' : '\n'};
}

std::string TextOf(const std::string& path, const Answer& answer, GetFormat format) {
  return format == GetFormat::kJson ? JsonAnswer(path, answer) : answer.path + End(format);
}

// Begin what a process returns.
constexpr char answered = '+';
constexpr char notAnswered = '-';

// A line that names no file.
Problem ProblemOf(const std::invalid_argument& error) {
  return {Problem::Kind::kUnsupported, error.what(), "correct this line of the list"};
}

// One run.
class Answers {
 public:
  // Root's answers come from processes of the owners; those of a stream, too, outlive a file that crashes a decoder.
  Answers(const Request& request, GetFormat format, bool isStream)
      : request_(request), format_(format), isStream_(isStream) {
    if (isStream || IsRoot()) processes_.emplace([this](const auto&... given) { return AnswerHere(given...); });
  }

  void Give(const std::string& name) { Give(QueryFor(name, request_)); }
  void GiveForLine(const std::string& line);
  void GiveForEach(NameList list);
  bool AreComplete() const { return areComplete_; }

 private:
  void Give(const Query& query);
  void Write(const std::string& result);
  std::string AnswerHere(const std::string& message, const std::string& inside, std::optional<Problem> problem) const;
  std::string Refuse(const std::string& name, const std::string& path, const Problem& problem) const;

  const Request request_;
  const GetFormat format_;
  const bool isStream_;
  std::optional<OwnerProcesses> processes_;
  bool areComplete_ = true;
};

void Answers::Give(const Query& query) {
  const std::string message = Serialise(query);
  Write(processes_ ? processes_->Run(query.path, message) : AnswerHere(message, query.path, {}));
}

void Answers::Write(const std::string& result) {
  if (result.front() == notAnswered) areComplete_ = false;
  if (result.size() > 1) WriteOut(result.substr(1));
}

std::string Answers::AnswerHere(const std::string& message, const std::string& inside,
                                std::optional<Problem> problem) const {
  const auto start = std::chrono::steady_clock::now();
  const Query query = ParseSerialised(message);
  Request request = request_;
  request.size = query.size;
  request.quarterTurns = query.quarterTurns;
  Answer answer;
  if (!problem) problem = Ask(inside, request, &answer);
  if (problem) return Refuse(query.name, query.path, *problem);
  answer.path = PathFromOutside(answer.path, query.path);
  answer.milliseconds = MillisecondsSince(start);
  return answered + TextOf(query.path, answer, format_);
}

std::string Answers::Refuse(const std::string& name, const std::string& path, const Problem& problem) const {
  ReportProblem(name, problem);
  if (format_ == GetFormat::kJson) return notAnswered + JsonProblem("source", path, problem);
  return notAnswered + (isStream_ ? End(format_) : "");
}

void Answers::GiveForLine(const std::string& line) {
  try {
    const bool isObject = format_ == GetFormat::kJson && line.rfind('{', 0) == 0;
    Give(isObject ? ParseQuery(line, request_) : QueryFor(line, request_));
  } catch (const std::invalid_argument& error) {
    Write(Refuse(line, line, ProblemOf(error)));
  }
}

void Answers::GiveForEach(NameList list) {
  while (!list.HasEnded()) {
    pollfd input = {list.Descriptor(), POLLIN, 0};
    poll(&input, 1, -1);
    std::deque<std::string> lines;
    const std::optional<Problem> problem = list.Read(&lines);
    for (const std::string& line : lines) GiveForLine(line);
    if (!problem) continue;
    areComplete_ = false;
    ReportProblem(list.Name(), *problem);
  }
}

}  // namespace

bool Get(const std::vector<std::string>& files, std::optional<NameList> list, const Request& request,
         GetFormat format) {
  Answers answers(request, format, list.has_value());
  for (const std::string& name : files) answers.Give(name);
  if (list) answers.GiveForEach(*std::move(list));
  return answers.AreComplete();
}

}  // namespace tavithumb::apps::command
