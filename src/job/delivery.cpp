// SPDX-License-Identifier: GPL-3.0-or-later
// The answer as an HTTP response on standard output.
#include <http_file_outputer.h>

#include <cstdio>

#include "support/path.h"
#include "tavithumb/libtavithumb.h"
#include "tavithumb/thumb_convert_cmd.h"

namespace tavithumb {

std::string Thumb::GetOutputType() const {
  switch (type_) {
    case OUTPUT_ALBUMEX:
      return "Albumex";
    case OUTPUT_BROVIX:
      return "Brovix";
    case OUTPUT_BROVIX_VAR_TMP:
      return "BrovixVarTmp";
    case OUTPUT_CINEVO:
      return "Cinevo";
    case OUTPUT_ORIGINAL:
      return "Original";
    default:
      return "";
  }
}

bool Thumb::Output(const std::string& sizeName) {
  SetRequest(sizeName);
  return OutputImpl();
}

bool Thumb::Output(int width, int height) {
  SetRequest(ThumbDimension{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)});
  return OutputImpl();
}

bool Thumb::Output(int side) {
  return Output(side, side);
}

bool Thumb::OutputImpl() {
  if (CalcOutputFile().empty()) return false;
  return HttpOutputFile(info_.GetOutputMimeType());
}

bool Thumb::OutputOriginalImage() {
  if (!info_.IsWebAcceptable()) return false;
  outputFile_ = srcPath_;
  return HttpOutputFile(info_.GetMimeType());
}

bool Thumb::HttpOutputFile(const std::string& mimeType) {
  std::puts("Cache-Control: max-age=300, must-revalidate\r");
  // Albumex thumbnails are stored auto-oriented; the others already have the user's rotation.
  if (type_ == OUTPUT_ALBUMEX && (info_.GetUserRotate() & 3) != 0) return HttpOutputTurned(mimeType);
  return HTTPFileOutputer().Output(outputFile_.c_str(), mimeType.c_str()) == 0;
}

bool Thumb::HttpOutputTurned(const std::string& mimeType) const {
  JpegTranCmd turn(info_, outputFile_, "", true);
  // The stream is not closed and the child is not reaped: both last as long as the process, which answers only this
  // request.
  std::FILE* const stream = turn.popen();
  if (stream == nullptr) return false;
  return HTTPFileOutputer().Output(stream, Basename(outputFile_).c_str(), mimeType.c_str()) == 0;
}

}  // namespace tavithumb
