// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tavithumb/export.h"
#include "tavithumb/thumb_info.h"

namespace tavithumb {

/// One run of one external tool: from `src` to `dest`, as the copied `info` asks. The constructor builds the argument
/// vector, exec() runs the tool once and waits for it. A command belongs to one thread; commands of several threads
/// may run side by side as long as their destinations differ.
///
/// exec() returns true when the result is at `dest`. A tool that is missing, crashes or exits non-zero gives false,
/// never an exception; what is left on disk then is said at each command.
class TAVITHUMB_API ThumbConvertCmd {
 public:
  static const std::string kJpegtran;  ///< /usr/bin/jpegtran
  static const std::string kDjpeg;     ///< /usr/bin/djpeg
  static const std::string kDcraw;     ///< /usr/bin/dcraw
  static const std::string kConvert;   ///< /usr/bin/convert, ImageMagick's

  /// Keeps `info` and copies of both paths; looks at no file.
  ThumbConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  ThumbConvertCmd(const ThumbConvertCmd&) = delete;
  ThumbConvertCmd& operator=(const ThumbConvertCmd&) = delete;

  /// Runs the tool once and waits for it. True when the result is at the destination.
  virtual bool exec() = 0;

 protected:
  /// Commands are used through their own type, never deleted through this one.
  ~ThumbConvertCmd() = default;

  /// The argument vector, a null pointer at its end. Points into constants and into the strings below: it is good as
  /// long as the command lives and those strings stay as they are.
  std::vector<const char*> args_;
  ThumbInfo info_;                 ///< facts of the source, and the request
  std::string src_;                ///< path of the source; a suffix such as "[0]" may say which part of it
  std::string dest_;               ///< path of the result
  std::string geometry_;           ///< the box, "360x360", with "+X+Y" for a crop
  std::string rotateDegrees_;      ///< the orientation in degrees clockwise
  std::string userRotateDegrees_;  ///< the caller's rotation in degrees clockwise
};

/// A JPEG decoded at 1/1, 1/2, 1/4 or 1/8 of its size into a BMP; turned and mirrored by a ConvertCmd when needed.
/// On failure djpeg's partial output stays; after a failed ConvertCmd nothing stays.
class TAVITHUMB_API DJpegCmd : public ThumbConvertCmd {
 public:
  /// A reduction that leaves at most this share of the target's pixels is one step too strong.
  static constexpr double TOO_SMALL_RATIO = 0.75;

  /// Chooses the scale; looks at no file.
  DJpegCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  /// Decodes, and turns the result when needed; the file between the two lies beside `dest`.
  bool exec() override;

  /// The scale exponent s, 0 to 3: the JPEG is decoded at 1 / 2^s.
  int CalcScale() const;
  /// The same.
  int GetScale() const { return CalcScale(); }
  /// Writes it into scaleString_, "1/1" to "1/8".
  void CalcScaleString();
  /// Bytes of the BMP, rows taken as unpadded.
  unsigned GetConvertBytes() const;
  /// The BMP and half a MiB are more than the source's bytes: not worth keeping, the caller deletes it after use.
  bool IsNeedDelete() const;

 protected:
  std::string tmpPath_;      ///< where djpeg writes: `dest`, or `dest` and "_<seconds since the epoch>"
  std::string scaleString_;  ///< the scale, as djpeg takes it
};

/// A JPEG turned without re-encoding, cut to whole blocks where its edge can't be turned.
class TAVITHUMB_API JpegTranCmd : public ThumbConvertCmd {
 public:
  /// Turns by the stored rotation, left out when `skipRotate`, plus the user's. An empty `dest` selects popen().
  JpegTranCmd(ThumbInfo info, const std::string& src, const std::string& dest, bool skipRotate);

  /// Writes to `dest`; removes nothing on failure.
  bool exec() override;
  /// Starts the tool and returns the stream of the turned JPEG, null when it can't be started. The caller closes it
  /// with TLIBCPclose, which waits for the tool.
  virtual std::FILE* popen();

 protected:
  std::string rotateString_;  ///< degrees clockwise
};

/// The preview embedded in a camera raw file, extracted by dcraw and scaled by a DJpegCmd or else a ConvertCmd.
class TAVITHUMB_API DcrawCmd : public ThumbConvertCmd {
 public:
  /// Extracts the preview into a temporary file in the source's EA directory at once, so that its size is known.
  /// A failed extraction is told by exec(). An exception other than Error closes both handles and passes through.
  DcrawCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  ~DcrawCmd();

  /// Makes `dest` from the extracted preview, or `dest` is the preview itself when nothing could scale it; the
  /// temporary file is gone afterwards. False without running a tool when there is no preview. A `dest` that is no
  /// readable image gives false and is left as it is.
  bool exec() override;

  /// What the constructor does.
  void setupRawThumbPath();
  /// `dest` is an image whose width and height can be read.
  bool checkTmpExif();

 protected:
  std::string rawThumbPath_;           ///< the extracted preview; "" when there is none
  std::FILE* dcrawPipe_ = nullptr;     ///< from dcraw; closed by the destructor, which waits for it
  std::FILE* rawThumbFile_ = nullptr;  ///< the preview, open for writing; closed by the destructor

 private:
  void extractPreview();
  void closeHandles();
};

/// A still thumbnail of the first frame: metadata stripped, sRGB, scaled into the box or cropped, turned, mirrored;
/// the type follows the extension of `dest`. On failure `dest` is removed.
class TAVITHUMB_API ConvertCmd : public ThumbConvertCmd {
 public:
  /// Builds the arguments; looks at no file.
  ConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  /// Runs the build of convert that getConvertPath() tells.
  bool exec() override;

  /// The add-on package with its own build of convert is enabled; looked up anew at each call.
  bool IsCodexaEnabled();
  /// The executable that exec() runs: the add-on's when enabled, else kConvert.
  std::string getConvertPath();
};

/// An animated thumbnail of an animated GIF, all frames scaled and turned. On failure `dest` is removed; the
/// intermediate under /var/tmp stays when the second of the two passes failed.
class TAVITHUMB_API GIFConvertCmd : public ThumbConvertCmd {
 public:
  /// Runs the first pass at once: every frame made whole, into a temporary file under /var/tmp.
  GIFConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  /// Runs the second pass. False without running anything when the first one failed.
  bool exec() override;

  /// What the constructor does.
  void setupCoalesceTmpPath();

 protected:
  std::string coalesceTmpPath_;  ///< the intermediate of whole frames; "" when there is none
};

}  // namespace tavithumb
