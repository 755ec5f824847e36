// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <string>

namespace tavithumb::apps {

// The type of the source itself. Facts of a HEIF picture carry none; its name tells.
std::string SourceMimeType(const ThumbInfo& source);

// What the answer of a job is. A source that is the answer is served as what it is, and is "Original" whichever step
// made it the answer.
bool IsSource(const Thumb& job);
std::string AnswerMimeType(const Thumb& job);
std::string AnswerType(const Thumb& job);

// The answer is a file of this job alone, to be deleted after use. One that is stored beside the source is for
// everybody, whatever Thumb::IsNeedDelete() says.
bool IsTemporary(const Thumb& job);

}  // namespace tavithumb::apps
