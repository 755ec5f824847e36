// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavi/core.h>
#include <unistd.h>

#include <utility>

#include "support/quarter_turns.h"
#include "support/temporary_names.h"
#include "tavithumb/thumb_convert_cmd.h"

namespace tavithumb {

GIFConvertCmd::GIFConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest)
    : ThumbConvertCmd(std::move(info), src, dest) {
  geometry_ = info_.GetXString();
  rotateDegrees_ = Degrees(info_.GetRotate());
  userRotateDegrees_ = Degrees(info_.GetUserRotate());
  setupCoalesceTmpPath();
}

void GIFConvertCmd::setupCoalesceTmpPath() {
  coalesceTmpPath_ = FramesPath(src_);
  const char* const coalesce[] = {kConvert.c_str(), src_.c_str(), "-coalesce", coalesceTmpPath_.c_str(), nullptr};
  if (TLIBCExecv(kConvert.c_str(), coalesce, 1) == 0) return;
  unlink(coalesceTmpPath_.c_str());
  coalesceTmpPath_.clear();
}

bool GIFConvertCmd::exec() {
  if (coalesceTmpPath_.empty()) return false;
  // Size and stored rotation precede the input, the user's rotation follows it.
  args_ = {kConvert.c_str(),
           "-strip",
           "-colorspace",
           "sRGB",
           "-thumbnail",
           geometry_.c_str(),
           "-rotate",
           rotateDegrees_.c_str(),
           "-layers",
           "optimize",
           coalesceTmpPath_.c_str(),
           "-rotate",
           userRotateDegrees_.c_str(),
           dest_.c_str(),
           nullptr};
  if (TLIBCExecv(kConvert.c_str(), args_.data(), 1) != 0) {
    unlink(dest_.c_str());
    return false;
  }
  unlink(coalesceTmpPath_.c_str());
  return true;
}

}  // namespace tavithumb
