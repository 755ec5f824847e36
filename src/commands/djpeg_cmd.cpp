// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavi/core.h>
#include <unistd.h>

#include <utility>

#include "support/quarter_turns.h"
#include "support/temporary_names.h"
#include "tavithumb/thumb_convert_cmd.h"

namespace tavithumb {
namespace {

constexpr int kSmallestScale = 3;  // 1/8
constexpr unsigned kBmpHeaderBytes = 54;
constexpr unsigned kBytesWorthSaving = 512 * 1024;

bool IsTurnedOrMirrored(const ThumbInfo& info) {
  return (AddTurns(info.GetRotate(), info.GetUserRotate()) & 3) != 0 || info.GetFlop();
}

// The smallest reduction at which the picture fits into the target, or the largest possible one.
int FirstFittingScale(std::uint32_t width, std::uint32_t height, const ThumbDimension& target) {
  for (int scale = 0; scale < kSmallestScale; ++scale) {
    if (target.width >= width >> scale && target.height >= height >> scale) return scale;
  }
  return kSmallestScale;
}

}  // namespace

DJpegCmd::DJpegCmd(ThumbInfo info, const std::string& src, const std::string& dest)
    : ThumbConvertCmd(std::move(info), src, dest) {
  CalcScaleString();
  tmpPath_ = IsTurnedOrMirrored(info_) ? DecodedPath(dest_) : dest_;
  args_ = {kDjpeg.c_str(), "-scale", scaleString_.c_str(), "-dct",           "fast",       "-fast",
           "-onepass",     "-bmp",   "-outfile",           tmpPath_.c_str(), src_.c_str(), nullptr};
}

int DJpegCmd::CalcScale() const {
  const ThumbDimension target = info_.GetTargetDimension();
  const int scale = FirstFittingScale(info_.GetWidth(), info_.GetHeight(), target);
  const std::uint32_t pixels = (info_.GetWidth() * info_.GetHeight()) >> (2 * scale);
  const std::uint32_t area = target.width * target.height;
  const bool tooSmall = pixels <= area * TOO_SMALL_RATIO;
  return tooSmall && scale > 0 ? scale - 1 : scale;
}

void DJpegCmd::CalcScaleString() {
  scaleString_ = "1/" + std::to_string(1 << CalcScale());
}

unsigned DJpegCmd::GetConvertBytes() const {
  return ((info_.GetWidth() * info_.GetHeight()) >> (2 * CalcScale())) * 3 + kBmpHeaderBytes;
}

bool DJpegCmd::IsSourceSmaller() const {
  return info_.GetFileSize() <= GetConvertBytes();
}

bool DJpegCmd::IsNeedDelete() const {
  return GetConvertBytes() + kBytesWorthSaving > info_.GetFileSize();
}

bool DJpegCmd::exec() {
  if (TLIBCExecv(kDjpeg.c_str(), args_.data(), 1) != 0) return false;
  if (tmpPath_ == dest_) return true;
  const bool converted = ConvertCmd(info_, tmpPath_, dest_).exec();
  unlink(tmpPath_.c_str());
  return converted;
}

}  // namespace tavithumb
