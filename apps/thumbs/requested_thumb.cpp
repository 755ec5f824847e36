// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/requested_thumb.h"

#include <tavithumb/error.h>
#include <tavithumb/thumb_convert_cmd.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <exception>
#include <optional>

#include "thumbs/facts_in_bounds.h"
#include "thumbs/full_disk.h"
#include "thumbs/source_lock.h"
#include "thumbs/stored_files.h"

namespace tavithumb::apps {
namespace {

// The name of every request for a box in pixels.
constexpr char customSize[] = "__CUSTOM_SIZE__";

// The library's code for a content of a type that it does not know.
constexpr int unknownType = 602;

// The job's output type "BrovixVarTmp".
constexpr std::int32_t brovixVarTmp = 3;

// The same facts for another size.
class ResizedInfo : public ThumbInfo {
 public:
  ResizedInfo(const ThumbInfo& facts, const std::string& name) : ThumbInfo(facts) {
    size_ = name;
    dimension_ = Thumb::strThumbSizeMap_.at(name);
  }
};

// A decoded JPEG would take more bytes than the source has.
bool IsCheaperAsItIs(const ThumbInfo& info, const std::string& path) {
  return info.IsGood() && info.GetMimeType() == "image/jpeg" &&
         info.GetFileSize() <= DJpegCmd(info, path, "").GetConvertBytes();
}

}  // namespace

std::string SourceMimeType(const ThumbInfo& info, const std::string& path) {
  return info.IsHeic() ? "image/" + file::GetFileExt(path) : info.GetMimeType();
}

RequestedThumb::RequestedThumb(const std::string& path, const Request& request)
    : Thumb(path, request.options, request.acceptHeic), request_(request) {
  SetRequest();
}

// Replaces the job's fresh record before its options are set. Making a thumbnail for a box is the job's own decision
// then, where Convert() with a box would run a tool whatever the options say.
void RequestedThumb::SetRequest() {
  const Size& size = request_.size;
  info_ = size.IsBox() ? ThumbInfo(srcPath_, customSize, size.box)
                       : ThumbInfo(srcPath_, size.name, strThumbSizeMap_.at(size.name));
  SetOption(request_.options);
  Rotate(request_.quarterTurns);
}

void RequestedThumb::SetSize(const std::string& name) {
  request_.size = {name, {0, 0}};
  info_ = ResizedInfo(info_, name);
}

void RequestedThumb::ReadFacts() {
  try {
    ExtractInBounds(&info_, false);
  } catch (const Error& error) {
    if (error.Code() != unknownType) throw;
  }
}

bool RequestedThumb::FindStored() {
  if (request_.size.name == "original") return false;
  ReadFacts();
  if (tryAlbumexEA_ && (SetOutAlbumexEA() || SetOutAlbumexOldEA())) return true;
  if (tryBrovixEA_ && SetOutBrovixEA()) return true;
  if (isVideo_ && SetOutCinevoEA()) return true;
  return avatar_ && SetOutAvatar();
}

bool RequestedThumb::HasOutdated() const {
  const std::string entry = GetOnlineOutputDest();
  return access(entry.c_str(), F_OK) == 0 && !info_.IsThumbUptoDate(entry);
}

bool RequestedThumb::IsServedBySource() {
  return (!info_.IsNeedConvert() || IsCheaperAsItIs(info_, srcPath_)) && !HasUsablePreview();
}

// One that fits the size becomes the thumbnail, even where the source would do. It is written to look at it.
bool RequestedThumb::HasUsablePreview() {
  ExtractInBounds(&info_, true);
  const std::string preview = info_.GetEXIFPreviewTmpPath();
  return !preview.empty() && unlink(preview.c_str()) == 0;
}

// What else is wrong with them is for the library to find, when it reads them itself.
void RequestedThumb::CheckFactsAreInBounds() const {
  ThumbInfo facts = info_;
  try {
    ExtractInBounds(&facts, true);
  } catch (const FactsTooLarge&) {
    throw;
  } catch (const std::exception&) {
  }
  unlink(facts.GetEXIFPreviewTmpPath().c_str());
}

bool RequestedThumb::Resolve() {
  std::optional<AnimationLock> lock;
  if (optEnableGIF_ && file::GetFileExt(srcPath_) == "gif") lock.emplace();
  CheckFactsAreInBounds();
  const StoredFiles before(srcPath_);
  if (!FindOrMake()) return false;
  isMade_ = !IsSource() && !before.Hold(outputFile_);
  if (!isMade_ || !IsDiskFull(outputFile_) || !IsCutOff(outputFile_)) return true;
  unlink(outputFile_.c_str());
  return false;
}

// A named size is resolved by its name, with the fall-back to smaller ones, a box as it stands in the job. A path
// without an output type is what a failed save left, unless it is the HEIF source that the caller accepts.
bool RequestedThumb::FindOrMake() {
  const std::string path = request_.size.IsBox() ? CalcOutputFile() : CalcOutputFile(request_.size.name);
  if (path.empty() || (type_ == 0 && !IsSource())) return false;
  if (IsSource() && request_.size.name != "original" && request_.quarterTurns % 4 != 0) return MakeTurned();
  if (avatar_ && GetOutputType() == "Brovix") PreferAvatar();
  return true;
}

// A source that would serve itself, because a thumbnail of it saves nothing, does not show the rotation.
bool RequestedThumb::MakeTurned() {
  const std::string name = info_.GetBrovixTmpThumbEAName();
  const bool isStored = file::IsDestSupportEAWrite(file::Dirname(srcPath_));
  if (isStored && !file::MakeEADir(srcPath_)) return false;
  const std::string work = isStored ? file::GetEAPath(srcPath_, name) : file::GetVarTmpPath(name);
  if (!ConvertCmd(info_, srcPath_, work).exec()) return false;
  if (isStored) return SaveTmpThumbToEA(work) && (avatar_ ? SetOutAvatar() : SetOutBrovixEA());
  outputFile_ = work;
  type_ = brovixVarTmp;
  return true;
}

// An avatar made from an embedded preview is stored as one, although the job then names the place of the thumbnail
// that is not cropped.
void RequestedThumb::PreferAvatar() {
  const std::string path = outputFile_;
  if (!SetOutAvatar()) outputFile_ = path;
}

bool RequestedThumb::HasShowableSource() {
  ReadFacts();
  return info_.IsWebAcceptable();
}

}  // namespace tavithumb::apps
