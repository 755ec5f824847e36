// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tavithumb/export.h"
#include "tavithumb/thumb_info.h"

namespace tavithumb {

/// One run of one external tool: from `src` to `dest`, as requested by the copied `info`. The constructor builds the
/// argument vector, exec() runs the tool once and waits for it. A command belongs to one thread; several threads may
/// run commands at the same time if their destinations differ.
///
/// exec() returns true if the result is at `dest`. If a tool is missing, crashes or exits non-zero, it returns false
/// and never throws; each command documents what is left on disk then.
class TAVITHUMB_API ThumbConvertCmd {
 public:
  static const std::string kJpegtran;  ///< /usr/bin/jpegtran
  static const std::string kDjpeg;     ///< /usr/bin/djpeg
  static const std::string kDcraw;     ///< /usr/bin/dcraw
  static const std::string kConvert;   ///< /usr/bin/convert, ImageMagick's

  /// Stores `info` and copies of both paths; accesses no file.
  ThumbConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  ThumbConvertCmd(const ThumbConvertCmd&) = delete;
  ThumbConvertCmd& operator=(const ThumbConvertCmd&) = delete;

  /// Runs the tool once and waits for it. True if the result is at the destination.
  virtual bool exec() = 0;

 protected:
  /// Commands are used through their own types, never deleted through this one.
  ~ThumbConvertCmd() = default;

  /// The argument vector, terminated by a null pointer. Points into constants and into the strings below: it is valid
  /// as long as the command lives and those strings don't change.
  std::vector<const char*> args_;
  ThumbInfo info_;                 ///< facts of the source, and the request
  std::string src_;                ///< path of the source; a suffix such as "[0]" may select a part of it
  std::string dest_;               ///< path of the result
  std::string geometry_;           ///< the box, "360x360", with "+X+Y" for a crop
  std::string rotateDegrees_;      ///< the orientation in degrees clockwise
  std::string userRotateDegrees_;  ///< the caller's rotation in degrees clockwise
};

/// A JPEG decoded at 1/1, 1/2, 1/4 or 1/8 of its size into a BMP; rotated and mirrored by a ConvertCmd if needed.
/// If djpeg fails, its partial output is left on disk; if the ConvertCmd fails, nothing is left.
class TAVITHUMB_API DJpegCmd : public ThumbConvertCmd {
 public:
  /// A reduction that leaves at most this share of the target's pixels is one step too strong.
  static constexpr double TOO_SMALL_RATIO = 0.75;

  /// Chooses the scale; accesses no file.
  DJpegCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  /// Decodes, and rotates the result if needed; the intermediate file is next to `dest`.
  bool exec() override;

  /// The scale exponent s, 0 to 3: the JPEG is decoded at 1 / 2^s.
  int CalcScale() const;
  /// The same.
  int GetScale() const { return CalcScale(); }
  /// Writes the scale to scaleString_, "1/1" to "1/8".
  void CalcScaleString();
  /// Bytes of the BMP, counting rows as unpadded.
  unsigned GetConvertBytes() const;
  /// Whether the source is not larger than the BMP: decoding saves nothing, the source is served unchanged.
  bool IsSourceSmaller() const;
  /// Whether the BMP plus half a MiB is larger than the source: not worth keeping, the caller deletes it after use.
  bool IsNeedDelete() const;

 protected:
  std::string tmpPath_;      ///< output of djpeg: `dest`, or `dest` and "_<seconds since the epoch>"
  std::string scaleString_;  ///< the scale as an argument of djpeg
};

/// A JPEG rotated without re-encoding, trimmed to whole blocks if its edges can't be rotated.
class TAVITHUMB_API JpegTranCmd : public ThumbConvertCmd {
 public:
  /// Rotates by the stored rotation, unless `skipRotate`, plus the user's. An empty `dest` selects popen().
  JpegTranCmd(ThumbInfo info, const std::string& src, const std::string& dest, bool skipRotate);

  /// Writes to `dest`; removes nothing on failure.
  bool exec() override;
  /// Starts the tool and returns the stream of the rotated JPEG, null if it can't be started. The caller closes it
  /// with TLIBCPclose, which waits for the tool.
  virtual std::FILE* popen();

 protected:
  std::string rotateString_;  ///< degrees clockwise
};

/// The preview embedded in a camera raw file, extracted by dcraw and scaled by a DJpegCmd or else a ConvertCmd.
class TAVITHUMB_API DcrawCmd : public ThumbConvertCmd {
 public:
  /// Extracts the preview to a temporary file in the source's EA directory immediately, so that its size is known.
  /// exec() reports a failed extraction. On any exception other than Error, closes both handles and rethrows it.
  DcrawCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  ~DcrawCmd();

  /// Makes `dest` from the extracted preview; if nothing could scale it, `dest` is the preview itself. The temporary
  /// file is gone afterwards. Without a preview, returns false and runs no tool. If `dest` is not a readable image,
  /// returns false and leaves it unchanged.
  bool exec() override;

  /// What the constructor does.
  void setupRawThumbPath();
  /// Whether `dest` is an image whose width and height can be read.
  bool checkTmpExif();

 protected:
  std::string rawThumbPath_;           ///< the extracted preview; "" if there is none
  std::FILE* dcrawPipe_ = nullptr;     ///< from dcraw; closed by the destructor, which waits for it
  std::FILE* rawThumbFile_ = nullptr;  ///< the preview, open for writing; closed by the destructor

 private:
  void extractPreview();
  void closeHandles();
};

/// A still thumbnail of the first frame: metadata stripped, sRGB, scaled into the box or cropped, rotated, mirrored;
/// the extension of `dest` determines the type. On failure `dest` is removed.
class TAVITHUMB_API ConvertCmd : public ThumbConvertCmd {
 public:
  /// Builds the arguments; accesses no file.
  ConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  /// Runs the build of convert that getConvertPath() returns.
  bool exec() override;

  /// Whether the platform refuses to run convert with these arguments, because convert would read one of the paths as
  /// the name of other files; exec() then returns false without running anything. Runs nothing itself. False if the
  /// platform cannot tell.
  bool IsRefused() const;

  /// Whether the add-on package with its own build of convert is enabled; checked at each call.
  bool IsCodexaEnabled();
  /// The executable that exec() runs: the add-on's if it is enabled, else kConvert.
  std::string getConvertPath();
};

/// An animated thumbnail of an animated GIF, all frames scaled and rotated. On failure `dest` is removed; the
/// intermediate file in /var/tmp is left on disk if the second of the two passes fails.
class TAVITHUMB_API GIFConvertCmd : public ThumbConvertCmd {
 public:
  /// Runs the first pass immediately: coalesces the frames into a temporary file in /var/tmp.
  GIFConvertCmd(ThumbInfo info, const std::string& src, const std::string& dest);
  /// Runs the second pass. If the first one failed, returns false and runs nothing.
  bool exec() override;

  /// What the constructor does.
  void setupCoalesceTmpPath();

 protected:
  std::string coalesceTmpPath_;  ///< the coalesced frames; "" if there are none
};

}  // namespace tavithumb
