// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/answer.h"

#include <sys/stat.h>
#include <syslog.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "system/become.h"
#include "system/clock.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "system/text.h"
#include "thumbs/answer.h"
#include "thumbs/as_owner.h"
#include "thumbs/boxes.h"
#include "thumbs/facts.h"
#include "thumbs/kinds.h"
#include "thumbs/lookup.h"
#include "thumbs/making.h"
#include "thumbs/reasons.h"
#include "thumbs/rendering.h"
#include "thumbs/source_lock.h"
#include "thumbs/stored_state.h"
#include "web/dates.h"
#include "web/delivery.h"
#include "web/disposition.h"
#include "web/http_error.h"
#include "web/listing.h"
#include "web/sendfile.h"
#include "web/target.h"

namespace tavithumb::apps::web {
namespace {

HttpStatus StatusOf(Problem::Kind kind) {
  switch (kind) {
    case Problem::Kind::kMissing:
      return kNotFound;
    case Problem::Kind::kForbidden:
      return kForbidden;
    case Problem::Kind::kUnsupported:
      return kUnsupportedMediaType;
    case Problem::Kind::kDamaged:
      return kUnprocessableContent;
    case Problem::Kind::kNoMemory:
    case Problem::Kind::kNoTime:
      return kServiceUnavailable;
    case Problem::Kind::kNoPlace:
    case Problem::Kind::kNoTool:
      break;
  }
  return kInternalServerError;
}

HttpError ErrorOf(const Problem& problem) {
  return {StatusOf(problem.kind), problem.reason};
}

// The client need not know whose rights are missing.
void ThrowIf(const std::optional<Problem>& problem, const Delivery& delivery) {
  if (!problem) return;
  syslog(LOG_NOTICE, "%s: %s; %s", delivery.turn.state->request.data(), problem->reason.c_str(),
         problem->remedy.c_str());
  if (problem->kind == Problem::Kind::kForbidden) throw HttpError(kForbidden, "permission denied");
  throw ErrorOf(*problem);
}

// Root answers as the owner of the source's folder, from inside it.
void BecomeOwner(Found* source, const Delivery& delivery) {
  if (!IsRoot()) return;
  const std::string path = source->path;
  ThrowIf(WhyNotBecome(OwnerFor(path)), delivery);
  ThrowIf(WhyNotEnter(path, &source->path), delivery);
  if (!source->IsAt(source->path)) throw NotFound();  // the folder was replaced meanwhile
}

// A source below a root, which may be passed to the library.
Found FindSource(const Target& target, const Delivery& delivery) {
  Found found = delivery.service.roots.Find(target.path);
  if (!S_ISREG(found.record.st_mode)) throw NotFound();
  if (const std::optional<Problem> problem = CheckSource(found.path)) throw ErrorOf(*problem);
  BecomeOwner(&found, delivery);
  return found;
}

// What is in a folder is read as its owner; the folders that are served, as the user who started the program.
void BecomeOwnerOfFolder(const Target& target, const Delivery& delivery) {
  const Roots& roots = delivery.service.roots;
  if (!IsRoot() || (roots.AreNamed() && target.path.empty())) return;
  ThrowIf(WhyNotBecome(OwnerFor(JoinPath(roots.Find(target.path).path, ""))), delivery);
}

// A new answer: in memory, or that of the job.
struct Made {
  std::optional<maker::Thumbnail> inMemory;
  Lifetime lifetime = Lifetime::kLong;
};

// What nobody else will ask for is not stored: a thumbnail that the library's tools have made for a box is removed once
// it has been sent.
Made FindOrMake(const Request& request, Thumb* job) {
  if (request.size.IsBox() && !request.byLibrary) {
    if (auto thumbnail = MakeBox(request, job->GetInfo().GetPath())) return {std::move(thumbnail)};
  }
  const Resolution resolution = Resolve(request, RenderHere, job);
  if (resolution == Resolution::kNone) throw ErrorOf(WhyNoAnswer(job->GetInfo(), request));
  if (access(job->GetOutputFile().c_str(), R_OK) != 0) throw HttpError(kServiceUnavailable, "its thumbnail is gone");
  const bool isForThisRequest = IsTemporary(*job) || (resolution == Resolution::kMade && request.size.IsBox());
  return {std::nullopt, isForThisRequest ? Lifetime::kThisRequest : Lifetime::kLong};
}

// Only one process at a time makes thumbnails of a source; those that waited find it stored. Decoders may leave this
// process in any state.
Made Make(const Found& source, const Request& request, const Delivery& delivery, Thumb* job) {
  delivery.turn.state->isWorkersLast = true;
  delivery.service.confinement.LimitProcessorTime();
  const SourceLock lock(source.OpenPath());
  const ScratchFolder scratch(delivery.turn.state);
  return FindOrMake(request, job);
}

// Turns the library's exceptions into errors for the client. A file that causes one may have done worse.
template <typename Step>
void WithProblems(const Delivery& delivery, const Step& step) {
  try {
    step();
  } catch (const HttpError&) {
    throw;
  } catch (const std::exception&) {
    delivery.turn.state->isWorkersLast = true;
    throw ErrorOf(ProblemOfException());
  }
}

// Makes a stored thumbnail that may be served the job's answer.
bool FindGood(const Found& source, const Request& request, FileMemory* memory, Thumb* job) {
  const auto examine = [memory](const std::string& path) { return memory->Examine(path); };
  return FindStored(request, memory, job) && IsGoodAnswer(request, *job, examine) &&
         memory->IsComplete(job->GetOutputFile(), source.OpenPath());
}

void AnswerThumb(const Target& target, const Delivery& delivery) {
  const Found source = FindSource(target, delivery);
  const Request& request = target.request;
  WithProblems(delivery, [&] {
    Thumb stored(source.path, request.options, request.acceptHeic);
    if (FindGood(source, request, delivery.service.memory, &stored)) {
      return DeliverThumb(delivery, Lifetime::kLong, &stored);
    }
    Thumb job(source.path, request.options, request.acceptHeic);
    const Made made = Make(source, request, delivery, &job);
    if (made.inMemory) return DeliverFromMemory(*made.inMemory, delivery);
    DeliverThumb(delivery, made.lifetime, &job);
  });
}

void RequireReadable(const Found& source) {
  if (access(source.OpenPath().c_str(), R_OK) != 0) throw HttpError(kForbidden, "permission denied");
}

void AnswerOriginal(const Target& target, const Delivery& delivery) {
  const Found source = FindSource(target, delivery);
  const std::string videoType = PlayableVideoType(file::GetFileExt(source.path));
  WithProblems(delivery, [&] {
    RequireReadable(source);
    if (!videoType.empty()) return DeliverFile(source.path, videoType, "", delivery);
    Thumb job(source.path, Thumb::OPT_NO_CONVERT, false);
    delivery.service.memory->ReadFacts(false, &job);
    if (!IsShownByBrowsers(job.GetInfo())) throw HttpError(kUnsupportedMediaType, "a browser cannot show the original");
    DeliverFile(source.path, SourceMimeType(job.GetInfo()), "", delivery);
  });
}

// What it is makes no difference: nothing of it is read, and no browser shows it.
void AnswerDownload(const Target& target, const Delivery& delivery) {
  const Found source = FindSource(target, delivery);
  RequireReadable(source);
  DeliverFile(source.path, "application/octet-stream", AttachmentLine(target.path.back()), delivery);
}

void AnswerFacts(const Target& target, const Delivery& delivery) {
  const Found source = FindSource(target, delivery);
  WithProblems(delivery, [&] {
    const Facts facts = ReadFacts(source.path);
    nlohmann::ordered_json object = JsonFacts(facts);
    if (!facts.isVideo) object["camera"] = CameraOf(facts);
    DeliverJson(target, JsonLine(object), delivery);
  });
}

// One answer takes not much longer than this: the client asks for the rest.
constexpr std::chrono::seconds mostForDates(1);

// Any of the photos may be damaged.
void AnswerDates(const Target& target, const Delivery& delivery) {
  delivery.turn.state->isWorkersLast = true;
  BecomeOwnerOfFolder(target, delivery);
  const Clock::time_point deadline = Clock::now() + mostForDates;
  DeliverJson(target, DatesAsJson(delivery.service.roots, target.path, target.after, deadline), delivery);
}

void AnswerList(const Target& target, const Delivery& delivery) {
  BecomeOwnerOfFolder(target, delivery);
  const Listing listing = ListFolder(delivery.service.roots, target.path, delivery.service.byLibrary);
  DeliverList(target, listing, delivery);
}

void AnswerTarget(const Target& target, const Delivery& delivery) {
  switch (target.route) {
    case Route::kThumb:
      return AnswerThumb(target, delivery);
    case Route::kOriginal:
      return AnswerOriginal(target, delivery);
    case Route::kDownload:
      return AnswerDownload(target, delivery);
    case Route::kFacts:
      return AnswerFacts(target, delivery);
    case Route::kList:
      return AnswerList(target, delivery);
    case Route::kDates:
      return AnswerDates(target, delivery);
  }
}

}  // namespace

void Refuse(const Variables& variables, const HttpError& error, RequestState* state) {
  state->hasAnswered = true;
  static_cast<void>(std::fputs(ErrorResponse(error, ValueOf(variables, "REQUEST_METHOD") != "HEAD").c_str(), stdout));
  syslog(LOG_NOTICE, "%s: %d %s", state->request.data(), error.Code(), error.what());
}

void Answer(const Variables& variables, const Service& service, const Turn& turn) {
  RequestState* const state = turn.state;
  state->SetRequest(Printable(ValueOf(variables, "REQUEST_METHOD") + " " + ValueOf(variables, "REQUEST_URI")));
  service.confinement.SetEnvironment(variables);
  try {
    Target target = ParseTarget(variables);
    target.request.byLibrary = service.byLibrary;
    target.request.quality = service.quality;
    target.request.mayBeTemporary = true;
    AnswerTarget(target, {service, ReadSendfile(service.sendfile, variables), turn});
  } catch (const HttpError& error) {
    Refuse(variables, error, state);
  } catch (const std::exception& error) {
    Refuse(variables, HttpError(kInternalServerError, "the request could not be answered"), state);
  }
}

}  // namespace tavithumb::apps::web
