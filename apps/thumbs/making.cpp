// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/making.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <optional>

#include "system/paths.h"
#include "system/quiet_log.h"
#include "thumbs/answer.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/full_disk.h"
#include "thumbs/kinds.h"
#include "thumbs/known_facts.h"
#include "thumbs/lookup.h"
#include "thumbs/privacy.h"
#include "thumbs/reasons.h"
#include "thumbs/rendering.h"
#include "thumbs/source_lock.h"
#include "thumbs/store.h"
#include "thumbs/store_size.h"
#include "thumbs/stored_files.h"
#include "thumbs/stored_state.h"

namespace tavithumb::apps {
namespace {

// Sets a job's facts for the requested size.
using GiveFacts = std::function<void(Thumb*)>;

void ReadFacts(Thumb* job) {
  ReadInBounds([job] { job->ReadFacts(); });
}

bool Answers(const GiveFacts& giveFacts, Thumb* job) {
  giveFacts(job);
  return !job->CalcFromFacts().empty();
}

// A named size may fall back to smaller ones; a box does not.
bool AnswersAtSomeSize(const Request& request, const GiveFacts& giveFacts, Thumb* job) {
  if (request.size.IsBox()) return Answers(giveFacts, job);
  for (const std::string& name : job->GetSizesToTry(request.size.name)) {
    job->SetRequest(name);
    if (Answers(giveFacts, job)) return true;
  }
  return false;
}

// An avatar made from an embedded preview is stored as an avatar, although the job then returns the path of the
// uncropped thumbnail.
void PreferAvatar(Thumb* job) {
  if (HasStored(*job)) job->SetOutAvatar();
}

// A source that would be served unchanged, because a thumbnail saves nothing, does not show the rotation.
bool FindOrMake(const Request& request, const GiveFacts& giveFacts, Thumb* job) {
  if (!AnswersAtSomeSize(request, giveFacts, job)) return false;
  const bool isRotated = request.quarterTurns % 4 != 0;
  if (IsSource(*job) && request.size.name != "original" && isRotated) return job->SetOutConverted();
  const bool isAvatar = (request.options & Thumb::OPT_AVATAR) != 0;
  if (isAvatar && job->GetOutputTypeCode() == Thumb::OUTPUT_BROVIX) PreferAvatar(job);
  return true;
}

bool SetOutStored(const Request& request, Thumb* job) {
  const bool isAvatar = (request.options & Thumb::OPT_AVATAR) != 0;
  return isAvatar ? job->SetOutAvatar() : job->SetOutBrovixEA();
}

// The library makes temporary files for volumes that store no thumbnails, and knows nothing of the store.
void StoreTemporary(const Request& request, Thumb* job) {
  const std::string& source = job->GetInfo().GetPath();
  if (!IsTemporary(*job) || !HasPlaceFor(source) || !file::MakeEADir(source)) return;
  const std::string entry = BaseName(job->GetOnlineOutputDest());
  if (job->SaveThumbToEA(job->GetOutputFile(), NewEntryPath(source, entry), 0)) SetOutStored(request, job);
}

// The library sets the time only as root.
void GiveTimeOf(const std::string& source, const std::string& thumbnail) {
  struct stat record = {};
  if (stat(source.c_str(), &record) != 0) return;
  const std::array<timespec, 2> times = {{{0, UTIME_OMIT}, {record.st_mtim.tv_sec, 0}}};
  utimensat(AT_FDCWD, thumbnail.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
}

Resolution MakeByLibrary(const Request& request, const GiveFacts& giveFacts, Thumb* job) {
  const std::string& source = job->GetInfo().GetPath();
  std::optional<AnimationLock> lock;
  if ((request.options & Thumb::OPT_ENABLE_GIF) != 0 && file::GetFileExt(source) == "gif") lock.emplace();
  SetRequest(request, job);
  const StoredFiles before(source);
  const QuietLog quiet;
  if (!FindOrMake(request, giveFacts, job)) return Resolution::kNone;
  StoreTemporary(request, job);
  const std::string& answer = job->GetOutputFile();
  if (IsSource(*job) || before.Hold(answer)) return Resolution::kFound;
  if (IsDiskFull(answer) && IsCutOff(answer)) {
    unlink(answer.c_str());
    return Resolution::kNone;
  }
  GiveTimeOf(source, answer);
  RestrictToReadersOf(source, answer);
  return Resolution::kMade;
}

// Whether only the programs can look for stored thumbnails of it: the library finds none without facts.
bool IsFoundByProgramsAlone(const Request& request, const ThumbInfo& source) {
  return !request.byLibrary && request.size.name != "original" && IsKnownToMakerAlone(source);
}

bool IsAcceptedHeic(const Request& request, const ThumbInfo& source) {
  return request.acceptHeic && source.IsHeic() && request.quarterTurns % 4 == 0;
}

// Whether the source is the answer without a look at what is stored. The library serves only types that it calls
// acceptable to browsers.
bool IsOriginalServed(const Request& request, const ThumbInfo& source) {
  return !request.byLibrary && request.size.name == "original" && !source.IsWebAcceptable() &&
         (IsShownByBrowsers(source) || IsAcceptedHeic(request, source));
}

Resolution ServeSource(Thumb* job) {
  job->SetOutOriginalImage();
  return Resolution::kFound;
}

// The answer on a volume that stores no thumbnails; its user deletes it.
bool MakeTemporary(const Request& request, const PictureDetails& details, Render* render, Thumb* job) {
  const ThumbInfo& source = job->GetInfo();
  const std::string path = file::GetVarTmpPath(source.GetBrovixTmpThumbEAName());
  if (render(source.GetPath(), [&] { return RenderToFile(source, details, request, path); })) return false;
  return job->SetOutTemporary(path);
}

// Where it can't be stored, a request may be content with a temporary file.
bool MakeStored(const Request& request, const PictureDetails& details, Render* render, Thumb* job) {
  const ThumbInfo& source = job->GetInfo();
  if (request.mayBeTemporary && WhyNotStored(source.GetPath())) return MakeTemporary(request, details, render, job);
  const std::optional<std::string> refusal =
      render(source.GetPath(), [&] { return RenderAndStore(source, details, {request}, Original::kSource); });
  if (!refusal) return SetOutStored(request, job);
  return request.mayBeTemporary && *refusal == notStored && MakeTemporary(request, details, render, job);
}

// The library's order: what is stored, then the source where that will do, then a new thumbnail. The job has its facts.
// Returns nothing if the maker declines the source.
std::optional<Resolution> ResolveSize(const Request& request, const SourceFacts& facts, Render* render, Thumb* job) {
  SetRequest(request, job);
  const ThumbInfo& source = job->GetInfo();
  if (IsOriginalServed(request, source)) return ServeSource(job);
  const bool canRender = CanRender(request, source);
  if (!canRender && !IsFoundByProgramsAlone(request, source)) return Resolution::kNone;
  if (job->SetOutStored() && IsGoodAnswer(request, *job)) return Resolution::kFound;
  if (!canRender) return Resolution::kNone;
  if (IsSourceTheAnswer(request, source)) return ServeSource(job);
  const bool isStored = CanRenderAndStore(request, source);
  const bool isMade = isStored ? MakeStored(request, facts.Details(), render, job)
                               : MakeTemporary(request, facts.Details(), render, job);
  return isMade ? std::optional<Resolution>(Resolution::kMade) : std::nullopt;
}

// The request in its size and then, where a smaller one will do, in those.
std::vector<Request> InEachSize(const Request& request, const Thumb& job) {
  if (request.size.IsBox()) return {request};
  std::vector<Request> requests;
  for (const std::string& name : job.GetSizesToTry(request.size.name)) {
    requests.push_back(request);
    requests.back().size.name = name;
  }
  return requests;
}

Resolution ResolveByMaker(const Request& request, Render* render, Thumb* job) {
  const SourceFacts facts(job->GetInfo().GetPath());
  job->SetFacts(request.byLibrary ? facts.OfLibrary() : facts.Known());
  for (const Request& sized : InEachSize(request, *job)) {
    const std::optional<Resolution> resolution = ResolveSize(sized, facts, render, job);
    if (!resolution) break;
    if (*resolution != Resolution::kNone) return *resolution;
  }
  return Resolution::kNone;
}

// The library goes by its own facts alone.
void ForgetFacts(Thumb* job) {
  const ThumbInfo& source = job->GetInfo();
  job->SetFacts(ThumbInfo(source.GetPath(), source.GetSize(), source.GetDimension()));
}

// Brings a thumbnail that the library's tools have stored to what StateOfStored() calls good, so that it isn't made
// again by the next request: they store BMPs and previews larger than the box.
void Improve(const Request& request, Render* render, Thumb* job) {
  if (!request.byLibrary) job->SetFacts(KnownFacts(job->GetInfo()));
  const ThumbInfo& source = job->GetInfo();
  const std::string stored = job->GetOnlineOutputDest();
  if (!CanRenderAndStore(request, source) || job->GetOutputFile() != stored) return;
  if (StateOfStored(request, *job) != StoredState::kBad) return;
  render(source.GetPath(), [&] { return RenderAndStore(source, {}, {request}, Original::kStored); });
}

}  // namespace

bool IsSourceTheAnswer(const Request& request, const ThumbInfo& source) {
  return IsAcceptedHeic(request, source) || IsServedUnchanged(request, source);
}

Resolution Resolve(const Request& request, Render* render, Thumb* job) {
  Resolution resolution = ResolveByMaker(request, render, job);
  if (resolution == Resolution::kNone) {
    ForgetFacts(job);
    resolution = MakeByLibrary(request, ReadFacts, job);
    if (resolution == Resolution::kMade) Improve(request, render, job);
  }
  if (resolution == Resolution::kMade) CountStored(job->GetOutputFile());
  return resolution;
}

// If a preview becomes the thumbnail, it has to be read from the source for the requested size.
Resolution MakeByLibrary(const Request& request, const SourceFacts& facts, Thumb* job) {
  const auto giveFacts = [&facts](Thumb* fresh) {
    fresh->SetFacts(facts.OfLibrary());
    if (facts.HavePreviewFor(*fresh)) ReadFacts(fresh);
  };
  const Resolution resolution = MakeByLibrary(request, giveFacts, job);
  if (resolution == Resolution::kMade) Improve(request, RenderHere, job);
  return resolution;
}

}  // namespace tavithumb::apps
