// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/answer.h"

#include <tavithumb/util.h>

namespace tavithumb::apps {

std::string SourceMimeType(const ThumbInfo& source) {
  return source.IsHeic() ? "image/" + file::GetFileExt(source.GetPath()) : source.GetMimeType();
}

bool IsSource(const Thumb& job) {
  return job.GetOutputFile() == job.GetInfo().GetPath();
}

std::string AnswerMimeType(const Thumb& job) {
  return IsSource(job) ? SourceMimeType(job.GetInfo()) : job.GetOutputMimeType();
}

std::string AnswerType(const Thumb& job) {
  return IsSource(job) ? "Original" : job.GetOutputType();
}

bool IsTemporary(const Thumb& job) {
  return job.GetOutputTypeCode() == Thumb::OUTPUT_BROVIX_VAR_TMP;
}

}  // namespace tavithumb::apps
