// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/making.h"

#include <tavithumb/util.h>
#include <unistd.h>

#include <functional>
#include <optional>

#include "thumbs/answer.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/full_disk.h"
#include "thumbs/lookup.h"
#include "thumbs/rendering.h"
#include "thumbs/source_lock.h"
#include "thumbs/stored_files.h"

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
  ReadFactsOnly(job);
  const ThumbInfo& source = job->GetInfo();
  if (!CanRender(request, source)) return Resolution::kNone;
  if (job->SetOutStored()) return Resolution::kFound;
  const bool showsHeic = request.acceptHeic && source.IsHeic() && request.quarterTurns % 4 == 0;
  if (showsHeic || IsServedUnchanged(request, source)) {
    job->SetOutOriginalImage();
    return Resolution::kFound;
  }
  if (render(source, {request})) return Resolution::kNone;
  const bool isAvatar = (request.options & Thumb::OPT_AVATAR) != 0;
  return (isAvatar ? job->SetOutAvatar() : job->SetOutBrovixEA()) ? Resolution::kMade : Resolution::kNone;
}

}  // namespace

Resolution Resolve(const Request& request, Render* render, Thumb* job) {
  const Resolution resolution = ResolveByMaker(request, render, job);
  return resolution == Resolution::kNone ? MakeByLibrary(request, ReadFacts, job) : resolution;
}

// If a preview becomes the thumbnail, it has to be read from the source for the requested size.
Resolution MakeByLibrary(const Request& request, const SourceFacts& facts, Thumb* job) {
  const auto giveFacts = [&facts](Thumb* fresh) {
    facts.GiveTo(fresh);
    if (facts.HavePreviewFor(*fresh)) ReadFacts(fresh);
  };
  return MakeByLibrary(request, giveFacts, job);
}

}  // namespace tavithumb::apps
