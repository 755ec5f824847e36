// SPDX-License-Identifier: GPL-3.0-or-later
// A thumbnail from the preview embedded in the source, instead of a decode of the whole source.
#include <unistd.h>

#include "support/log.h"
#include "support/quarter_turns.h"
#include "tavithumb/libtavithumb.h"
#include "tavithumb/thumb_convert_cmd.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

// The preview of a JPEG that needs no rotation is a thumbnail already.
bool ServesAsItIs(const ThumbInfo& info) {
  return info.GetMimeType() == "image/jpeg" && (AddTurns(info.GetRotate(), info.GetUserRotate()) & 3) == 0;
}

}  // namespace

bool Thumb::SetOutFromEXIFPreview() {
  if (!info_.IsGood()) return false;
  const std::string preview = info_.GetEXIFPreviewTmpPath();
  const std::string destination = file::GetEAPath(srcPath_, info_.GetBrovixThumbEAName());
  if (preview.empty()) return false;
  if (!file::MakeEADir(srcPath_)) {
    unlink(preview.c_str());
    return false;
  }
  const bool made = ServesAsItIs(info_) ? MovePreview(preview) : ConvertPreview(preview, destination);
  if (!made) return false;
  outputFile_ = destination;  // an avatar job has moved it to the avatar's path, but returns this one
  type_ = OUTPUT_BROVIX;
  unlink(preview.c_str());
  return true;
}

bool Thumb::MovePreview(const std::string& preview) {
  if (SaveTmpThumbToEA(preview)) return true;
  syslog(LOG_ERR, TAVITHUMB_LOG("failed to save to EA"), "libtavithumb", 352, "SetOutFromEXIFPreview");
  return false;
}

bool Thumb::ConvertPreview(const std::string& preview, const std::string& destination) const {
  if (ConvertCmd(info_, preview, destination).exec()) return true;
  syslog(LOG_ERR, TAVITHUMB_LOG("failed to rotate or convert tmp file to web accepatable img %s -> %s"), "libtavithumb",
         347, "SetOutFromEXIFPreview", preview.c_str(), destination.c_str());
  unlink(preview.c_str());
  return false;
}

}  // namespace tavithumb
