// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/making.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <optional>

#include "thumbs/answer.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/full_disk.h"
#include "thumbs/lookup.h"
#include "thumbs/rendering.h"
#include "thumbs/source_lock.h"
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

Resolution MakeByLibrary(const Request& request, const GiveFacts& giveFacts, Thumb* job) {
  const std::string& source = job->GetInfo().GetPath();
  std::optional<AnimationLock> lock;
  if ((request.options & Thumb::OPT_ENABLE_GIF) != 0 && file::GetFileExt(source) == "gif") lock.emplace();
  SetRequest(request, job);
  const StoredFiles before(source);
  if (!FindOrMake(request, giveFacts, job)) return Resolution::kNone;
  const std::string& answer = job->GetOutputFile();
  if (IsSource(*job) || before.Hold(answer)) return Resolution::kFound;
  if (!IsDiskFull(answer) || !IsCutOff(answer)) return Resolution::kMade;
  unlink(answer.c_str());
  return Resolution::kNone;
}

// The library's order: what is stored, then the source where that will do, then a new thumbnail.
Resolution ResolveByMaker(const Request& request, Render* render, Thumb* job) {
  SetRequest(request, job);
  const PictureDetails details = ReadFactsAndDetails(job);
  const ThumbInfo& source = job->GetInfo();
  if (!CanRender(request, source)) return Resolution::kNone;
  if (job->SetOutStored() && IsGoodAnswer(request, *job)) return Resolution::kFound;
  const bool showsHeic = request.acceptHeic && source.IsHeic() && request.quarterTurns % 4 == 0;
  if (showsHeic || IsServedUnchanged(request, source)) {
    job->SetOutOriginalImage();
    return Resolution::kFound;
  }
  if (render(source, details, {request}, Original::kSource)) return Resolution::kNone;
  const bool isAvatar = (request.options & Thumb::OPT_AVATAR) != 0;
  return (isAvatar ? job->SetOutAvatar() : job->SetOutBrovixEA()) ? Resolution::kMade : Resolution::kNone;
}

// Brings a thumbnail that the library's tools have stored to what StateOfStored() calls good, so that it isn't made
// again by the next request: they store BMPs and previews larger than the box, and without root the present time.
void Improve(const Request& request, Render* render, Thumb* job) {
  const ThumbInfo& source = job->GetInfo();
  const std::string stored = job->GetOnlineOutputDest();
  if (!CanRender(request, source) || job->GetOutputFile() != stored) return;
  struct stat record = {};
  if (stat(source.GetPath().c_str(), &record) != 0) return;
  const std::array<timespec, 2> times = {{{0, UTIME_OMIT}, {record.st_mtim.tv_sec, 0}}};
  utimensat(AT_FDCWD, stored.c_str(), times.data(), 0);
  if (StateOfStored(request, *job) == StoredState::kBad) render(source, {}, {request}, Original::kStored);
}

}  // namespace

Resolution Resolve(const Request& request, Render* render, Thumb* job) {
  const Resolution byMaker = ResolveByMaker(request, render, job);
  if (byMaker != Resolution::kNone) return byMaker;
  const Resolution byLibrary = MakeByLibrary(request, ReadFacts, job);
  if (byLibrary == Resolution::kMade) Improve(request, render, job);
  return byLibrary;
}

// If a preview becomes the thumbnail, it has to be read from the source for the requested size.
Resolution MakeByLibrary(const Request& request, const SourceFacts& facts, Thumb* job) {
  const auto giveFacts = [&facts](Thumb* fresh) {
    facts.GiveTo(fresh);
    if (facts.HavePreviewFor(*fresh)) ReadFacts(fresh);
  };
  const Resolution resolution = MakeByLibrary(request, giveFacts, job);
  if (resolution == Resolution::kMade) Improve(request, RenderAndStore, job);
  return resolution;
}

}  // namespace tavithumb::apps
