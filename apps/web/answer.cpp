// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/answer.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "system/descriptors.h"
#include "system/text.h"
#include "thumbs/answer.h"
#include "thumbs/kinds.h"
#include "thumbs/lookup.h"
#include "thumbs/making.h"
#include "thumbs/reasons.h"
#include "thumbs/rendering.h"
#include "thumbs/source_lock.h"
#include "thumbs/stored_state.h"
#include "web/http_error.h"
#include "web/listing.h"
#include "web/sendfile.h"
#include "web/target.h"

namespace tavithumb::apps::web {
namespace {

void Print(const std::string& text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
}

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

// A source below a root, which may be passed to the library.
Found FindSource(const Target& target, const Roots& roots) {
  Found found = roots.Find(target.path);
  if (!S_ISREG(found.record.st_mode)) throw NotFound();
  if (const std::optional<Problem> problem = CheckSource(found.path)) throw ErrorOf(*problem);
  return found;
}

// How an answer is found, and reaches its client.
struct Delivery {
  const Service& service;
  Sendfile sendfile;
  const Turn& turn;
};

// Only one process at a time makes thumbnails of a source; those that waited find it stored. Decoders may leave this
// process in any state.
void Make(const Found& source, const Target& target, const Delivery& delivery, Thumb* job) {
  delivery.turn.state->isWorkersLast = true;
  delivery.service.confinement.LimitProcessorTime();
  const SourceLock lock(source.OpenPath());
  const ScratchFolder scratch(delivery.turn.state);
  if (Resolve(target.request, RenderHere, job) == Resolution::kNone)
    throw ErrorOf(WhyNoAnswer(job->GetInfo(), target.request));
  if (access(job->GetOutputFile().c_str(), R_OK) != 0) throw HttpError(kServiceUnavailable, "its thumbnail is gone");
}

// The library rotates an Albumex thumbnail while it sends it.
bool IsSentAsItIs(const Thumb& job) {
  const bool isRotated = job.GetOutputTypeCode() == Thumb::OUTPUT_ALBUMEX && (job.GetInfo().GetUserRotate() & 3) != 0;
  return !IsTemporary(job) && !isRotated;
}

// What fits into the buffers of any connection is sent at once; the rest as fast as the client reads.
void AnnounceUnlessShort(std::uintmax_t bytes, const Delivery& delivery) {
  constexpr std::uintmax_t shortest = 32768;
  if (bytes > shortest) delivery.turn.startSending();
}

std::uintmax_t SizeOf(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::file_size(path, ignored);
}

// With the same caching as the library's, and `headers` before it.
void Deliver(const std::string& headers, const std::string& mimeType, const Delivery& delivery, Thumb* job) {
  delivery.turn.state->hasAnswered = true;
  Print(headers);
  const std::string line =
      IsSentAsItIs(*job) ? SendfileLine(delivery.sendfile, delivery.service.roots, job->GetOutputFile()) : "";
  if (!line.empty()) {
    Print("Cache-Control: max-age=300, must-revalidate\r\nContent-Type: " + mimeType + "\r\n" + line + "\r\n");
    return;
  }
  AnnounceUnlessShort(SizeOf(job->GetOutputFile()), delivery);
  if (!job->HttpOutputFile(mimeType)) syslog(LOG_INFO, "%s: aborted", delivery.turn.state->request.data());
}

void DeliverThumb(const Delivery& delivery, Thumb* job) {
  // For the same URL, clients that can show HEIF may get the source itself.
  Deliver("X-Content-Type-Options: nosniff\r\nVary: Accept\r\n", AnswerMimeType(*job), delivery, job);
  if (IsTemporary(*job)) unlink(job->GetOutputFile().c_str());
}

// Turns the library's exceptions into errors for the client. A file that causes one may have done worse.
template <typename Step>
void WithProblems(const Delivery& delivery, const Step& step) {
  const QuietErrors quiet;
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
  const Found source = FindSource(target, delivery.service.roots);
  const Request& request = target.request;
  WithProblems(delivery, [&] {
    Thumb stored(source.path, request.options, request.acceptHeic);
    if (FindGood(source, request, delivery.service.memory, &stored)) return DeliverThumb(delivery, &stored);
    Thumb made(source.path, request.options, request.acceptHeic);
    Make(source, target, delivery, &made);
    DeliverThumb(delivery, &made);
  });
}

void AnswerOriginal(const Target& target, const Delivery& delivery) {
  const Found source = FindSource(target, delivery.service.roots);
  WithProblems(delivery, [&] {
    Thumb job(source.path, Thumb::OPT_NO_CONVERT, false);
    delivery.service.memory->ReadFacts(false, &job);
    if (!IsShownByBrowsers(job.GetInfo())) throw HttpError(kUnsupportedMediaType, "a browser cannot show the original");
    job.SetOutOriginalImage();
    Deliver("X-Content-Type-Options: nosniff\r\n", SourceMimeType(job.GetInfo()), delivery, &job);
  });
}

void AnswerList(const Target& target, const Delivery& delivery) {
  const Listing listing = ListFolder(delivery.service.roots, target.path);
  const std::string body = target.wantsHtml ? ListAsHtml(listing, target.prefix) : ListAsJson(listing);
  delivery.turn.state->hasAnswered = true;
  Print(target.wantsHtml ? "Content-Type: text/html; charset=utf-8\r\n"
                           "Content-Security-Policy: default-src 'none'; img-src 'self'; style-src 'self'; base-uri "
                           "'none'; form-action 'none'; frame-ancestors 'none'\r\n"
                         : "Content-Type: application/json\r\n");
  Print("Content-Length: " + std::to_string(body.size()) +
        "\r\nCache-Control: no-cache\r\nVary: Accept\r\nX-Content-Type-Options: nosniff\r\n\r\n");
  if (target.isHead) return;
  AnnounceUnlessShort(body.size(), delivery);
  Print(body);
}

void AnswerTarget(const Target& target, const Delivery& delivery) {
  switch (target.route) {
    case Route::kThumb:
      return AnswerThumb(target, delivery);
    case Route::kOriginal:
      return AnswerOriginal(target, delivery);
    case Route::kList:
      return AnswerList(target, delivery);
  }
}

}  // namespace

void Refuse(const Variables& variables, const HttpError& error, RequestState* state) {
  state->hasAnswered = true;
  Print(ErrorResponse(error, ValueOf(variables, "REQUEST_METHOD") != "HEAD"));
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
    AnswerTarget(target, {service, ReadSendfile(service.sendfile, variables), turn});
  } catch (const HttpError& error) {
    Refuse(variables, error, state);
  } catch (const std::exception& error) {
    Refuse(variables, HttpError(kInternalServerError, "the request could not be answered"), state);
  }
}

}  // namespace tavithumb::apps::web
