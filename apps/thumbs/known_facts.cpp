// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/known_facts.h"

#include <sys/resource.h>
#include <tavithumb/util.h>

#include <new>
#include <sstream>

#include "system/file_rules.h"
#include "system/paths.h"
#include "system/soft_limit.h"
#include "thumbs/decoder_process.h"
#include "thumbs/facts_in_bounds.h"

namespace tavithumb::apps {
namespace {

// Some decoders read the whole file.
constexpr rlim_t mostForHeaders = rlim_t{768} * 1048576;

// HEIC by name and content is marked as the library marks it when it has an Exif block.
ThumbInfo WithType(ThumbInfo source, const std::string& type) {
  const bool isHeif = type == "image/heic" || type == "image/heif";
  if (isHeif && IsSupportExt({"heic", "heif"}, source.GetPath())) {
    source.SetHeic();
  } else {
    source.SetMimeType(type);
  }
  return source;
}

std::string Serialise(const maker::Content& content) {
  std::ostringstream text;
  text << content.stored.width << ' ' << content.stored.height << ' ' << static_cast<int>(content.format) << ' '
       << content.isAnimated << ' ' << content.orientation.quarterTurns << ' ' << content.orientation.isMirrored;
  return text.str();
}

std::optional<maker::Content> ParseContent(const std::string& text) {
  std::istringstream words(text);
  maker::Content content;
  int format = 0;
  words >> content.stored.width >> content.stored.height >> format >> content.isAnimated >>
      content.orientation.quarterTurns >> content.orientation.isMirrored;
  content.format = static_cast<maker::Format>(format);
  return words ? std::optional<maker::Content>(content) : std::nullopt;
}

}  // namespace

ThumbInfo KnownFacts(const ThumbInfo& source) {
  if (source.IsGood() || IsSupportVideo(BaseName(source.GetPath()))) return source;
  const std::string type = maker::RecogniseType(source.GetPath());
  return type.empty() ? source : WithType(source, type);
}

// Of most sources the library knows the size. Of the few raw files without one it may know the orientation.
bool IsKnownToMakerAlone(const ThumbInfo& source) {
  return source.IsGood() && source.GetWidth() == 0 && source.GetHeight() == 0 && source.GetRotate() == 0 &&
         !source.GetFlop();
}

void ReadKnownFacts(bool byLibrary, Thumb* job) {
  ReadFactsOnly(job);
  if (!byLibrary) job->SetFacts(KnownFacts(job->GetInfo()));
}

std::optional<maker::Content> ExamineInBounds(const std::string& path) {
  const BoundedData bounded(mostForHeaders);
  try {
    return maker::Examine(path);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

std::optional<maker::Content> ExamineInChild(const std::string& path) {
  return ParseContent(RunInDecoderProcess([&path] {
    FileRules rules;
    rules.Allow(path, FileRules::Access::kRead);
    rules.AllowSystem();
    rules.Enter();
    const std::optional<maker::Content> content = ExamineInBounds(path);
    return content ? Serialise(*content) : "";
  }));
}

}  // namespace tavithumb::apps
