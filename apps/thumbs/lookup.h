// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include "thumbs/file_memory.h"
#include "thumbs/request.h"

namespace tavithumb::apps {

// Sets the request of a fresh job: size and rotation.
void SetRequest(const Request& request, Thumb* job);

// Looks for an up-to-date thumbnail under the names that the options of the fresh `job` select, and makes it the job's
// answer. Makes and writes nothing. Throws like ReadFactsOnly().
bool FindStored(const Request& request, FileMemory* memory, Thumb* job);

// Whether the thumbnail that would be made for the job's request is already stored, and not older than its source.
// Unlike FindStored(), this also finds thumbnails of a source of which nobody has facts.
bool HasStored(const Thumb& job);

}  // namespace tavithumb::apps
