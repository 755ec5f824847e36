// SPDX-License-Identifier: GPL-3.0-or-later
// Writes the preview embedded in a picture to a temporary file.
#include <sys/stat.h>
#include <unistd.h>

#include <exiv2/exiv2.hpp>

#include "info/picture_details.h"
#include "info/preview_choice.h"
#include "support/log.h"
#include "support/temporary_names.h"

namespace tavithumb {
namespace {

constexpr double kSmallestShareOfBox = 0.75;

std::uint32_t Pixels(const PreviewCandidate& preview) {
  return preview.width * preview.height;
}

bool IsUsable(const PreviewCandidate& preview, const std::string& sourceMimeType, ThumbDimension box) {
  if (preview.mimeType == "image/tiff" && sourceMimeType == "image/x-canon-cr2") return false;
  return preview.width <= 2 * box.width || preview.height <= 2 * box.height;
}

// Exiv2 counts the bytes that it has passed to its stream. If the stream could not write them because the volume is
// full, only the size of the file shows it.
bool IsWhole(const std::string& path, std::size_t size) {
  struct stat64 record = {};
  return stat64(path.c_str(), &record) == 0 && static_cast<std::size_t>(record.st_size) == size;
}

}  // namespace

std::vector<PreviewCandidate> Candidates(const Exiv2::PreviewPropertiesList& list) {
  std::vector<PreviewCandidate> candidates;
  candidates.reserve(list.size());
  for (const Exiv2::PreviewProperties& properties : list) {
    candidates.push_back({properties.mimeType_, static_cast<std::uint32_t>(properties.width_),
                          static_cast<std::uint32_t>(properties.height_)});
  }
  return candidates;
}

std::optional<std::size_t> ChoosePreview(const std::vector<PreviewCandidate>& previews,
                                         const std::string& sourceMimeType, ThumbDimension box) {
  std::optional<std::size_t> best;
  for (std::size_t i = 0; i < previews.size(); ++i) {
    if (!IsUsable(previews[i], sourceMimeType, box)) continue;
    if (!best || Pixels(previews[i]) > Pixels(previews[*best])) best = i;
  }
  const std::uint32_t boxPixels = box.width * box.height;
  if (best && Pixels(previews[*best]) < kSmallestShareOfBox * boxPixels) best.reset();
  return best;
}

bool ThumbInfo::HasFittingPreview(const std::vector<PreviewCandidate>& previews) const {
  return ChoosePreview(previews, mimeType_, dimension_).has_value();
}

void ThumbInfo::ExtractEXIFPreviewInfo(const std::unique_ptr<Exiv2::Image>& image) {
  const Exiv2::PreviewManager manager(*image);
  const Exiv2::PreviewPropertiesList list = manager.getPreviewProperties();
  const std::optional<std::size_t> best = ChoosePreview(Candidates(list), mimeType_, dimension_);
  if (!best) {
    exifPreviewTmpPath_.clear();
    return;
  }
  const Exiv2::PreviewImage preview = manager.getPreviewImage(list[*best]);
  exifPreviewTmpPath_ = PreviewPath();
  const std::string written = exifPreviewTmpPath_ + preview.extension();
  const auto size = static_cast<std::size_t>(preview.size());
  if (static_cast<std::size_t>(preview.writeFile(exifPreviewTmpPath_)) == size && IsWhole(written, size)) {
    exifPreviewTmpPath_ = written;
    UpdateAMTime(exifPreviewTmpPath_);
    return;
  }
  unlink(exifPreviewTmpPath_.c_str());
  exifPreviewTmpPath_.clear();
  syslog(LOG_ERR, TAVITHUMB_LOG("Write preview to file failed, %s"), "thumb_info", 237, "ExtractEXIFPreviewInfo",
         path_.c_str());
}

}  // namespace tavithumb
