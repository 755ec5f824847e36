// SPDX-License-Identifier: GPL-3.0-or-later
#include "tavithumb/thumb_convert_cmd.h"

#include <utility>

namespace tavithumb {

const std::string ThumbConvertCmd::kJpegtran = "/usr/bin/jpegtran";
const std::string ThumbConvertCmd::kDjpeg = "/usr/bin/djpeg";
const std::string ThumbConvertCmd::kDcraw = "/usr/bin/dcraw";
const std::string ThumbConvertCmd::kConvert = "/usr/bin/convert";

ThumbConvertCmd::ThumbConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest)
    : info_(std::move(info)), src_(src), dest_(dest) {}

}  // namespace tavithumb
