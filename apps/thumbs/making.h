// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include "thumbs/request.h"
#include "thumbs/source_facts.h"

namespace tavithumb::apps {

enum class Resolution {
  kNone,   // there is no answer, or a full disk truncated it and it was removed
  kFound,  // it was already stored, or is the source itself
  kMade,
};

// Finds or makes the answer to `request` and makes it the answer of `job`, which must be fresh: a job keeps state of
// earlier requests. Throws like Thumb::CalcOutputFile(), or FactsTooLarge.
Resolution Resolve(const Request& request, Thumb* job);

// The same with facts that have already been read.
Resolution Resolve(const Request& request, const SourceFacts& facts, Thumb* job);

}  // namespace tavithumb::apps
