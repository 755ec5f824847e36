// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tavithumb/export.h"

namespace Exiv2 {
class Image;
}

namespace tavithumb {

/// A width and a height in pixels.
struct ThumbDimension {
  std::uint32_t width;   ///< pixels
  std::uint32_t height;  ///< pixels
};

/// What is known about one source file and one requested output size. A value: copies are independent of each other,
/// and one instance is used by one thread at a time. A job (Thumb) owns one; every command gets a copy.
///
/// Rotations are quarter turns clockwise. "Stored" means as the pixels lie in the file, before any orientation tag.
class TAVITHUMB_API ThumbInfo {
 public:
  /// Sources of size "large" are converted from this many pixels on (1280 x 1280).
  static constexpr std::uint32_t LARGE_ORIG_THRESHOLD = 1638400;

  /// Held by the library during every use of Exiv2, never while libheif or a tool runs. A program that uses Exiv2
  /// itself on another thread takes it around that use.
  static std::mutex exiv2_mutex_;

  /// Where the orientation of a picture is written: the standard tag.
  static const std::string stdOrientationKey;
  /// The ten maker-note tags that are asked, in this order, when the standard tag says "1".
  static const std::vector<std::string> orientationKeyList_;

  /// (quarter turns clockwise, mirror left-right) for the orientation values 1 to 8.
  static const std::vector<std::pair<std::int32_t, bool>> rotateFlopMappingList_;

  /// Takes the stat record of `path`; reads no image data. Throws Error 601 when the source can't be stat'ed.
  /// `size` is the requested size's name, `dimension` its box in pixels.
  ThumbInfo(const std::string& path, const std::string& size, const ThumbDimension& dimension);

  // --- Reading the facts -------------------------------------------------------------------------------------------

  /// Fills type, stored size and orientation from the file. Does nothing for a video (by extension). With
  /// `withPreview` the best embedded preview is written to a temporary file as well (ExtractEXIFPreviewInfo), which
  /// stays on disk until the owner of this record removes it, also when this call throws afterwards.
  ///
  /// Throws Error 601 (damaged; logged), 602 (unknown type, and no HEIF image that can be measured) or 603 (can't be
  /// opened); std::invalid_argument or std::out_of_range when the orientation tag holds no number.
  void ExtractImgInfo(bool withPreview);

  /// Measures the file as a HEIF image and marks the record as HEIC when its first metadata block is Exif. Otherwise
  /// nothing is set; failures of libheif are logged. Throws nothing of its own.
  void CheckAndGetHeif();

  /// Writes the largest embedded preview that fits the requested box (at most twice the box on one side, at least
  /// three quarters of its pixels) to "/tmp/thumb.<pid>.<seconds>.<random><extension>", with the source's times, and
  /// keeps that path (GetEXIFPreviewTmpPath); keeps "" when there is none or it can't be written (logged).
  /// `image` stays the caller's; its metadata has been read, and exiv2_mutex_ is held. Exiv2's errors pass through.
  void ExtractEXIFPreviewInfo(const std::unique_ptr<Exiv2::Image>& image);

  // --- Facts and wishes --------------------------------------------------------------------------------------------

  std::int32_t GetRotate() const { return rotate_; }            ///< from the orientation, 0 to 3
  std::int32_t GetUserRotate() const { return userRotate_; }    ///< wanted by the caller, any number
  bool GetFlop() const { return flop_; }                        ///< mirror left-right, from the orientation
  bool GetEnableGIF() const { return enableGIF_; }              ///< an animated GIF may stay one
  bool GetCropMode() const { return cropMode_; }                ///< crop to fill the box
  const std::string& GetMimeType() const { return mimeType_; }  ///< the source's; "" when not known, and for HEIC
  const std::string& GetSize() const { return size_; }          ///< the requested size's name
  ThumbDimension GetDimension() const { return dimension_; }    ///< the requested box
  std::uint32_t GetWidth() const { return width_; }             ///< stored, pixels; 0 when not known
  std::uint32_t GetHeight() const { return height_; }           ///< stored, pixels; 0 when not known
  std::uint32_t GetFileSize() const { return static_cast<std::uint32_t>(stat_.st_size); }  ///< bytes, low 32 bits
  std::string GetEXIFPreviewTmpPath() const { return exifPreviewTmpPath_; }                ///< "" when there is none
  bool IsHeic() const { return heic_; }           ///< a HEIF image, measured by libheif
  bool IsGood() const { return good_ || heic_; }  ///< the facts were read

  // --- What follows from them --------------------------------------------------------------------------------------

  /// "image/gif" for a GIF that may stay one and is not cropped, "image/png" for PNG, else "image/jpeg".
  std::string GetOutputMimeType() const;
  /// ".gif", ".png" or ".jpg", by the same rules.
  std::string GetOutputExtension() const;
  /// Browsers can show the source: JPEG, PNG, GIF or BMP, by its exact MIME type.
  bool IsWebAcceptable() const;
  /// The box, in the stored frame, into which the stored picture is scaled.
  ThumbDimension GetTargetDimension() const;
  /// False when the source itself serves the requested size.
  bool IsNeedConvert() const;
  /// `thumbPath` exists and is not older, in whole seconds, than the source was when this record was made.
  bool IsThumbUptoDate(const std::string& thumbPath) const;
  /// Gives `targetPath` the source's access and modification times (whole seconds). 0, or -1 with errno set.
  int UpdateAMTime(const std::string& targetPath) const;

  // --- Names of thumbnails in the EA directory ---------------------------------------------------------------------
  // Nothing is looked up on disk. A name with a size letter throws std::out_of_range ("map::at") for a size that has
  // none ("original", unknown names).

  /// "" or `_r<quarter turns>`, from the sum of both rotations modulo 4.
  std::string GetRotateSuffix() const;
  /// `<width>x<height>` of GetTargetDimension(), in pixels.
  std::string GetXString() const;
  /// "TAVIPHOTO_THUMB_M.jpg": size letter, extension.
  std::string GetAlbumexThumbEAName() const;
  /// "TAVIPHOTO:THUMB_M.jpg": the same, as it was named before.
  std::string GetAlbumexOldThumbEAName() const;
  /// "TAVIFILE_THUMB_M_r1.jpg": size letter, or width and height of a box in pixels, rotation, extension.
  std::string GetBrovixThumbEAName() const;
  /// "TAVIFILETMP_THUMB_r1.jpg": what a tool writes before it gets its final name; rotation, extension.
  std::string GetBrovixTmpThumbEAName() const;
  /// "TAVIAVATAR_120x120_r1.jpg": width and height, rotation, extension.
  std::string GetAvatarThumbEAName() const;
  /// "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", always.
  std::string GetCinevoThumbEAName() const;

 protected:
  friend class Thumb;     // writes the request: size, box, user rotation, flags
  friend class DcrawCmd;  // fills in the size of an extracted preview

  std::string path_;                ///< the source
  std::string size_;                ///< name of the requested size
  std::string mimeType_;            ///< the source's; "" when not known
  std::string exifPreviewTmpPath_;  ///< the extracted preview; "" when there is none
  ThumbDimension dimension_;        ///< the requested box
  std::uint32_t width_ = 0;         ///< stored, pixels
  std::uint32_t height_ = 0;        ///< stored, pixels
  std::int32_t rotate_ = 0;         ///< quarter turns clockwise, from the orientation
  std::int32_t userRotate_ = 0;     ///< quarter turns clockwise, wanted by the caller
  bool good_ = false;               ///< Exiv2 has read the facts
  bool heic_ = false;               ///< libheif has
  bool flop_ = false;               ///< mirror left-right
  bool enableGIF_ = false;          ///< an animated GIF may stay one
  bool cropMode_ = false;           ///< crop to fill
  struct stat64 stat_ = {};         ///< the source's record, from the constructor

 private:
  /// Reads type, size and (on request) preview with Exiv2, under its lock; returns the index of the orientation.
  std::uint32_t ReadWithExiv2(bool withPreview);
  void SetOrientation(std::uint32_t index);
};

}  // namespace tavithumb
