// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <optional>
#include <string>

#include "thumbs/rendering.h"
#include "thumbs/request.h"
#include "thumbs/source_facts.h"

namespace tavithumb::apps {

enum class Resolution {
  kNone,   // there is no answer, or a full disk truncated it and it was removed
  kFound,  // it was already stored, or is the source itself
  kMade,
};

// Finds or makes the answer to `request` and makes it the answer of `job`, which must be fresh: a job keeps state of
// earlier requests. What the maker declines, the library makes with its tools. `render` is RenderHere() or
// RenderInChild(). Throws like Thumb::CalcOutputFile(), or FactsTooLarge.
using Render = std::optional<std::string>(const std::string& source, const Rendering& rendering);
Resolution Resolve(const Request& request, Render* render, Thumb* job);

// Whether the source itself is the answer, unless a thumbnail is stored. Its facts must have been read.
bool IsSourceTheAnswer(const Request& request, const ThumbInfo& source);

// Has the library make it with its tools, from facts that have already been read.
Resolution MakeByLibrary(const Request& request, const SourceFacts& facts, Thumb* job);

}  // namespace tavithumb::apps
