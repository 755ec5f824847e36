// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include "thumbs/request.h"
#include "thumbs/source_facts.h"

namespace tavithumb::apps {

enum class Resolution {
  kNone,   // there is no answer, or a full disk has cut it off, which is removed then
  kFound,  // it was stored before, or is the source itself
  kMade,
};

// Finds or makes the answer to `request`, which is then the answer of `job`, a fresh one: a job that has served before
// keeps traces of it. Throws as Thumb::CalcOutputFile() does, or FactsTooLarge.
Resolution Resolve(const Request& request, Thumb* job);

// The same with facts that have been read before.
Resolution Resolve(const Request& request, const SourceFacts& facts, Thumb* job);

}  // namespace tavithumb::apps
