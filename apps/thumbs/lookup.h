// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include "thumbs/request.h"

namespace tavithumb::apps {

// Sets the request of a fresh job: size and rotation.
void SetRequest(const Request& request, Thumb* job);

// Looks for an up-to-date thumbnail in the places that the job's options name, and makes it the answer of the job, a
// fresh one. Makes and writes nothing. Throws as ReadFactsOnly() does.
bool FindStored(const Request& request, Thumb* job);

// The thumbnail that would be made for the job's request is stored already, and up to date, or older than its source.
// Unlike FindStored(), which follows the library's rules, these find what has been made of a source without facts.
bool HasStored(const Thumb& job);
bool HasOutdated(const Thumb& job);

}  // namespace tavithumb::apps
