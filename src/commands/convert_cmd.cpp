// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavi/core.h>
#include <unistd.h>

#include <utility>

#include "support/quarter_turns.h"
#include "tavithumb/thumb_convert_cmd.h"

// A platform may not provide it.
#pragma weak TLIBCTakesNamesLiterally

namespace tavithumb {
namespace {

// The add-on package has its own build of convert; a marker file shows that the package is enabled.
constexpr char kCodexaMarker[] = "/var/packages/Codexa/enabled";
constexpr char kCodexaConvert[] = "/var/packages/Codexa/target/usr/bin/convert";

// "+X+Y" of a crop centred in the stored picture. For a crop larger than the picture, it wraps around.
std::string CropOffsets(const ThumbInfo& info) {
  ThumbDimension crop = info.GetDimension();
  if ((info.GetUserRotate() & 1) != 0) std::swap(crop.width, crop.height);
  const std::uint32_t x = (info.GetWidth() - crop.width) >> 1;
  const std::uint32_t y = (info.GetHeight() - crop.height) >> 1;
  return "+" + std::to_string(x) + "+" + std::to_string(y);
}

}  // namespace

ConvertCmd::ConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest)
    : ThumbConvertCmd(std::move(info), src, dest) {
  geometry_ = info_.GetXString();
  if (info_.GetCropMode()) geometry_ += CropOffsets(info_);
  rotateDegrees_ = Degrees(info_.GetRotate());
  userRotateDegrees_ = Degrees(info_.GetUserRotate());
  src_ += "[0]";

  args_ = {kConvert.c_str(), "-strip", "-colorspace", "sRGB", src_.c_str()};
  args_.insert(args_.end(), {info_.GetCropMode() ? "-crop" : "-thumbnail", geometry_.c_str()});
  args_.insert(args_.end(), {"-rotate", rotateDegrees_.c_str()});
  if (info_.GetFlop()) args_.push_back("-flop");
  args_.insert(args_.end(), {"-rotate", userRotateDegrees_.c_str(), dest_.c_str(), nullptr});
}

bool ConvertCmd::IsRefused() const {
  return TLIBCTakesNamesLiterally != nullptr && TLIBCTakesNamesLiterally(kConvert.c_str(), args_.data()) == 0;
}

bool ConvertCmd::IsCodexaEnabled() {
  return access(kCodexaMarker, F_OK) == 0;
}

std::string ConvertCmd::getConvertPath() {
  return IsCodexaEnabled() ? kCodexaConvert : kConvert;
}

bool ConvertCmd::exec() {
  // Argument 0 is the system's convert, whichever build runs.
  if (TLIBCExecv(getConvertPath().c_str(), args_.data(), 1) == 0) return true;
  unlink(dest_.c_str());
  return false;
}

}  // namespace tavithumb
