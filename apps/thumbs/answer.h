// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <string>

namespace tavithumb::apps {

// The MIME type of the source itself; for a HEIF picture, whose facts have none, by its name.
std::string SourceMimeType(const ThumbInfo& source);

// The type of a job's answer. If the answer is the source, it is served with its own type, and is "Original" whichever
// step found it.
bool IsSource(const Thumb& job);
std::string AnswerMimeType(const Thumb& job);
std::string AnswerType(const Thumb& job);

// Whether the answer is a file of this job alone, to be deleted after use. One stored next to the source is shared,
// whatever Thumb::IsNeedDelete() returns.
bool IsTemporary(const Thumb& job);

}  // namespace tavithumb::apps
