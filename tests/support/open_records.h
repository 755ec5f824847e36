// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/error.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/thumb_convert_cmd.h>
#include <tavithumb/thumb_info.h>

namespace tavithumb::test {

// The library's classes with their fields open to tests; each converts to what it derives from.

struct OpenError : Error {
  explicit OpenError(const Error& error) : Error(error) {}
  using Error::Error;
  using Error::message_;
};

struct OpenInfo : ThumbInfo {
  using ThumbInfo::cropMode_;
  using ThumbInfo::dimension_;
  using ThumbInfo::enableGIF_;
  using ThumbInfo::exifPreviewTmpPath_;
  using ThumbInfo::flop_;
  using ThumbInfo::good_;
  using ThumbInfo::heic_;
  using ThumbInfo::height_;
  using ThumbInfo::mimeType_;
  using ThumbInfo::path_;
  using ThumbInfo::rotate_;
  using ThumbInfo::size_;
  using ThumbInfo::stat_;
  using ThumbInfo::ThumbInfo;
  using ThumbInfo::userRotate_;
  using ThumbInfo::width_;
};

struct OpenThumb : Thumb {
  using Thumb::acceptHeic_;
  using Thumb::avatar_;
  using Thumb::fallbackSmaller_;
  using Thumb::info_;
  using Thumb::isVideo_;
  using Thumb::needDelete_;
  using Thumb::noOnline_;
  using Thumb::noOriginalFallback_;
  using Thumb::optEnableGIF_;
  using Thumb::outputFile_;
  using Thumb::srcPath_;
  using Thumb::Thumb;
  using Thumb::tryAlbumexEA_;
  using Thumb::tryBrovixEA_;
  using Thumb::type_;

  // The job's record with its fields open.
  OpenInfo& Info() { return static_cast<OpenInfo&>(info_); }
};

// A command with its argument vector (and the strings it points into) open: OpenCommand<ConvertCmd> command(...).
template <typename Command>
struct OpenCommand : Command {
  using Command::args_;
  using Command::Command;
  using Command::dest_;
  using Command::geometry_;
  using Command::info_;
  using Command::rotateDegrees_;
  using Command::src_;
  using Command::userRotateDegrees_;
};

}  // namespace tavithumb::test
