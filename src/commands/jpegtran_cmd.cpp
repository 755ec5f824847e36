// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavi/core.h>

#include <utility>

#include "support/quarter_turns.h"
#include "tavithumb/thumb_convert_cmd.h"

namespace tavithumb {

JpegTranCmd::JpegTranCmd(ThumbInfo info, const std::string& src, const std::string& dest, bool skipRotate)
    : ThumbConvertCmd(std::move(info), src, dest) {
  const std::int32_t turns = AddTurns(skipRotate ? 0 : info_.GetRotate(), info_.GetUserRotate());
  rotateString_ = Degrees(turns % 4);
  args_ = {kJpegtran.c_str(), "-trim", "-rotate", rotateString_.c_str()};
  if (!dest_.empty()) args_.insert(args_.end(), {"-outfile", dest_.c_str()});
  args_.insert(args_.end(), {src_.c_str(), nullptr});
}

bool JpegTranCmd::exec() {
  return TLIBCExecv(kJpegtran.c_str(), args_.data(), 1) == 0;
}

std::FILE* JpegTranCmd::popen() {
  return TLIBCPopenv(kJpegtran.c_str(), "r", args_.data());
}

}  // namespace tavithumb
