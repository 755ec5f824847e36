// SPDX-License-Identifier: GPL-3.0-or-later
// Online mode: a thumbnail made now, by the cheapest suitable tool, while the user waits.
#include <optional>

#include "tavithumb/libtavithumb.h"
#include "tavithumb/thumb_convert_cmd.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

enum class Outcome { failed, made, sourceServes };

// The file that a tool writes.
struct Work {
  std::string path;
  bool eaWritable;  // in the source's EA directory
};

// Nothing if the EA directory can't be created.
std::optional<Work> PrepareWork(const ThumbInfo& info) {
  const bool eaWritable = file::IsDestSupportEAWrite(file::Dirname(info.GetPath()));
  const std::string name = info.GetBrovixTmpThumbEAName();
  const std::string path = eaWritable ? file::GetEAPath(info.GetPath(), name) : file::GetVarTmpPath(name);
  if (eaWritable && !file::MakeEADir(info.GetPath())) return std::nullopt;
  return Work{path, eaWritable};
}

bool IsMeasuredJpeg(const ThumbInfo& info) {
  return info.IsGood() && info.GetMimeType() == "image/jpeg";
}

// Tries the tools in order, with output to `work`: scaled JPEG decode, animated GIF, camera raw for types that browsers
// can't show, and the general converter if the source could be measured.
Outcome Make(const ThumbInfo& info, const std::string& src, const std::string& work, bool* needDelete) {
  bool done = false;
  if (IsMeasuredJpeg(info)) {
    DJpegCmd djpeg(info, src, work);
    if (djpeg.IsSourceSmaller()) return Outcome::sourceServes;
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
    type_ = OUTPUT_ORIGINAL;
    return false;
  }
  const std::optional<Work> work = PrepareWork(info_);
  if (!work) return false;
  switch (Make(info_, srcPath_, work->path, &needDelete_)) {
    case Outcome::sourceServes:
      type_ = OUTPUT_ORIGINAL;
      return false;
    case Outcome::made:
      if (KeepMade(work->path, work->eaWritable)) return true;
      break;
    case Outcome::failed:
      break;
  }
  outputFile_.clear();
  return false;
}

bool Thumb::SetOutConverted() {
  const std::optional<Work> work = PrepareWork(info_);
  if (!work) return false;
  if (ConvertCmd(info_, srcPath_, work->path).exec() && KeepMade(work->path, work->eaWritable)) return true;
  outputFile_.clear();
  return false;
}

bool Thumb::WouldServeSource() const {
  return !info_.IsNeedConvert() || (IsMeasuredJpeg(info_) && DJpegCmd(info_, srcPath_, "").IsSourceSmaller());
}

bool Thumb::KeepMade(const std::string& work, bool eaWritable) {
  if (!eaWritable) return SetOutTemporary(work);
  const bool saved = SaveTmpThumbToEA(work);
  type_ = OUTPUT_BROVIX;
  return saved;
}

}  // namespace tavithumb
