// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>
#include <tavithumb/libtavithumb.h>

#include <functional>
#include <optional>
#include <string>

#include "thumbs/known_facts.h"

namespace tavithumb::apps {

// The facts of one source, read once for all jobs that make a thumbnail of it; the details only if one needs them.
class SourceFacts {
 public:
  // Throws like ReadInBounds(), except that missing facts are not an error.
  explicit SourceFacts(const std::string& path);

  // Whether the source is still the file from which they were read.
  bool AreCurrent() const;

  // Whether an embedded preview would become the thumbnail for the request of `job`, which has these facts.
  bool HavePreviewFor(const Thumb& job) const { return job.GetInfo().HasFittingPreview(Details().previews); }

  const ThumbInfo& OfLibrary() const { return info_; }

  // With those of the maker where the library has none.
  ThumbInfo Known() const { return KnownFacts(info_); }

  // Throws like the constructor.
  const PictureDetails& Details() const;

 private:
  ThumbInfo info_;
  std::function<PictureDetails()> readDetails_;
  mutable std::optional<PictureDetails> details_;
  struct stat record_ = {};
};

}  // namespace tavithumb::apps
