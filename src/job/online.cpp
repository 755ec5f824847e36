// SPDX-License-Identifier: GPL-3.0-or-later
// Online mode: a thumbnail made now, by the cheapest suitable tool, while the user waits.
#include "job/output_type.h"
#include "tavithumb/libtavithumb.h"
#include "tavithumb/thumb_convert_cmd.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

enum class Outcome { failed, made, sourceServes };

// Tries the tools in order, with output to `work`: scaled JPEG decode, animated GIF, camera raw for types that browsers
// can't show, and the general converter if the source could be measured.
Outcome Make(const ThumbInfo& info, const std::string& src, const std::string& work, bool* needDelete) {
  bool done = false;
  if (info.IsGood() && info.GetMimeType() == "image/jpeg") {
    DJpegCmd djpeg(info, src, work);
    if (info.GetFileSize() <= djpeg.GetConvertBytes()) return Outcome::sourceServes;
    done = djpeg.exec();
    if (done) *needDelete = djpeg.IsNeedDelete();
  }
  if (info.IsGood() && info.GetOutputMimeType() == "image/gif") done = GIFConvertCmd(info, src, work).exec();
  if (!done && !info.IsWebAcceptable()) done = DcrawCmd(info, src, work).exec();
  if (!done && info.IsGood()) done = ConvertCmd(info, src, work).exec();
  return done ? Outcome::made : Outcome::failed;
}

}  // namespace

bool Thumb::SetOutOnline() {
  if (!info_.IsNeedConvert()) {
    type_ = kOutputOriginal;
    return false;
  }
  const bool eaWritable = file::IsDestSupportEAWrite(file::Dirname(srcPath_));
  const std::string workName = info_.GetBrovixTmpThumbEAName();
  const std::string work = eaWritable ? file::GetEAPath(srcPath_, workName) : file::GetVarTmpPath(workName);
  if (eaWritable && !file::MakeEADir(srcPath_)) return false;

  switch (Make(info_, srcPath_, work, &needDelete_)) {
    case Outcome::sourceServes:
      type_ = kOutputOriginal;
      return false;
    case Outcome::made:
      if (KeepMade(work, eaWritable)) return true;
      break;
    case Outcome::failed:
      break;
  }
  outputFile_.clear();
  return false;
}

bool Thumb::KeepMade(const std::string& work, bool eaWritable) {
  if (!eaWritable) {
    outputFile_ = work;
    type_ = kOutputBrovixVarTmp;
    return true;
  }
  const bool saved = SaveTmpThumbToEA(work);
  type_ = kOutputBrovix;
  return saved;
}

}  // namespace tavithumb
