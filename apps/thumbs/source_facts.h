// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>
#include <tavithumb/libtavithumb.h>

#include <string>
#include <vector>

namespace tavithumb::apps {

// The facts of one source, read once for all jobs that make a thumbnail of it.
class SourceFacts {
 public:
  // Throws as ReadInBounds() does, but for facts that don't exist.
  explicit SourceFacts(const std::string& path);

  // The source is still the file that they were read from.
  bool AreCurrent() const;

  // An embedded preview would become the thumbnail that `job`, which has these facts, is asked for.
  bool HavePreviewFor(const Thumb& job) const { return job.GetInfo().HasFittingPreview(previews_); }

  void GiveTo(Thumb* job) const { job->SetFacts(info_); }

 private:
  ThumbInfo info_;
  std::vector<PreviewCandidate> previews_;
  struct stat record_ = {};
};

}  // namespace tavithumb::apps
