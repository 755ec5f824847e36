// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/lookup.h"

namespace tavithumb::apps {

void SetRequest(const Request& request, Thumb* job) {
  if (request.size.IsBox()) {
    job->SetRequest(request.size.box);
  } else {
    job->SetRequest(request.size.name);
  }
  job->Rotate(request.quarterTurns);
}

bool FindStored(const Request& request, FileMemory* memory, Thumb* job) {
  if (request.size.name == "original") return false;
  SetRequest(request, job);
  memory->ReadFacts(request.byLibrary, job);
  return job->SetOutStored();
}

bool HasStored(const Thumb& job) {
  return job.GetInfo().IsThumbUptoDate(job.GetOnlineOutputDest());
}

}  // namespace tavithumb::apps
