// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/boxes.h"

#include <tavithumb/libtavithumb.h>

#include <algorithm>
#include <cstdint>

#include "thumbs/facts_in_bounds.h"
#include "thumbs/known_facts.h"
#include "thumbs/making.h"
#include "thumbs/rendering.h"
#include "thumbs/sizes.h"

namespace tavithumb::apps {
namespace {

// "" if none covers the box. A thumbnail that is cropped to fill the box needs more than one that covers it.
std::string SmallestCovering(const Request& request) {
  if ((request.options & Thumb::OPT_AVATAR) != 0) return "";
  const std::uint32_t longest = std::max(request.size.box.width, request.size.box.height);
  for (const std::string& name : StoredSizes()) {
    if (SideOf(name) >= longest) return name;
  }
  return "";
}

std::optional<maker::Thumbnail> MakeFromNamed(const Request& request, const std::string& name,
                                              const std::string& source) {
  Request named = request;
  named.size = {name, {0, 0}};
  Thumb job(source, named.options, false);
  if (Resolve(named, RenderHere, &job) == Resolution::kNone) return std::nullopt;
  return RenderInMemory(job.GetOutputFile(), request);
}

}  // namespace

std::optional<maker::Thumbnail> MakeBox(const Request& request, const std::string& source) {
  Thumb job(source, request.options, false);
  const PictureDetails details = ReadFactsAndDetails(&job);
  job.SetFacts(KnownFacts(job.GetInfo()));
  if (!CanRender(request, job.GetInfo()) || IsSourceTheAnswer(request, job.GetInfo())) return std::nullopt;
  const std::string name = SmallestCovering(request);
  if (name.empty()) return RenderInMemory(job.GetInfo(), details, request);
  return MakeFromNamed(request, name, source);
}

}  // namespace tavithumb::apps
