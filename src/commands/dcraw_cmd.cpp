// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavi/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "support/path.h"
#include "tavithumb/error.h"
#include "tavithumb/thumb_convert_cmd.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

constexpr char kMeasuringSize[] = "__CUSTOM__";
constexpr std::uint32_t kUnbounded = 2147483647;

// Copies the input to its end. False for an empty input, a failed read, and a failed or short write.
bool CopyAll(int from, int to) {
  char block[4096];
  for (bool copied = false;; copied = true) {
    const ssize_t got = TEMP_FAILURE_RETRY(read(from, block, sizeof block));
    if (got == 0) return copied;
    if (got < 0) return false;
    if (TEMP_FAILURE_RETRY(write(to, block, static_cast<std::size_t>(got))) != got) return false;
  }
}

}  // namespace

DcrawCmd::DcrawCmd(ThumbInfo info, const std::string& src, const std::string& dest)
    : ThumbConvertCmd(std::move(info), src, dest) {
  args_ = {kDcraw.c_str(), "-6", "-w", "-c", "-e", src_.c_str(), nullptr};
  setupRawThumbPath();
}

DcrawCmd::~DcrawCmd() {
  closeHandles();
}

void DcrawCmd::setupRawThumbPath() {
  try {
    extractPreview();
  } catch (const Error&) {
    rawThumbPath_.clear();
    closeHandles();
  } catch (...) {
    closeHandles();
    throw;
  }
}

void DcrawCmd::extractPreview() {
  rawThumbPath_ = file::GetEATmpPath(src_, Basename(dest_));
  rawThumbFile_ = std::fopen(rawThumbPath_.c_str(), "wb");
  if (rawThumbFile_ == nullptr) throw Error(602);
  dcrawPipe_ = TLIBCPopenv(kDcraw.c_str(), "r", args_.data());
  if (dcrawPipe_ == nullptr) throw Error(602);
  // Bypasses the streams' buffers, so that the file is complete while both are still open.
  if (!CopyAll(fileno(dcrawPipe_), fileno(rawThumbFile_))) {
    unlink(rawThumbPath_.c_str());
    throw Error(602);
  }
  if (info_.GetWidth() != 0 && info_.GetHeight() != 0) return;
  ThumbInfo preview(rawThumbPath_, kMeasuringSize, {0, 0});
  preview.ExtractImgInfo(false);
  info_.width_ = preview.GetWidth();
  info_.height_ = preview.GetHeight();
}

void DcrawCmd::closeHandles() {
  if (dcrawPipe_ != nullptr) (void)TLIBCPclose(std::exchange(dcrawPipe_, nullptr));
  if (rawThumbFile_ != nullptr) (void)std::fclose(std::exchange(rawThumbFile_, nullptr));
}

bool DcrawCmd::checkTmpExif() {
  if (dest_.empty()) return false;
  try {
    ThumbInfo result(dest_, kMeasuringSize, {kUnbounded, kUnbounded});
    result.ExtractImgInfo(false);
    return result.GetWidth() != 0 && result.GetHeight() != 0;
  } catch (...) {
    return false;
  }
}

bool DcrawCmd::exec() {
  if (rawThumbPath_.empty()) return false;
  const bool scaled = info_.IsGood() &&
                      (DJpegCmd(info_, rawThumbPath_, dest_).exec() || ConvertCmd(info_, rawThumbPath_, dest_).exec());
  // A preview that nothing could scale is used unchanged.
  if (!scaled && rename(rawThumbPath_.c_str(), dest_.c_str()) != 0) {
    unlink(rawThumbPath_.c_str());
    return false;
  }
  const bool readable = checkTmpExif();
  unlink(rawThumbPath_.c_str());
  return readable;
}

}  // namespace tavithumb
