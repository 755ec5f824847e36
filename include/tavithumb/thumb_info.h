// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
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

/// A preview embedded in a picture.
struct PreviewCandidate {
  std::string mimeType;  ///< of the preview
  std::uint32_t width;   ///< pixels
  std::uint32_t height;  ///< pixels
};

/// The colours of a picture, by its Exif data.
enum class ColourSpace {
  UNKNOWN,    ///< not said, or "uncalibrated": an embedded profile may say more
  SRGB,       ///< sRGB
  ADOBE_RGB,  ///< AdobeRGB, said directly or as "uncalibrated" with the interoperability index "R03"
};

/// What is known of a picture besides its type, size and orientation. Without Exif data, empty.
struct PictureDetails {
  std::vector<PreviewCandidate> previews;  ///< as ThumbInfo::ExtractImgInfoAndPreviews() returns them
  /// The embedded JPEG previews of a JPEG, up to 16 MiB altogether, in the order of `previews`. They are left out if
  /// the Exif data does not fit the picture any more, or may mean that they are stored another way up.
  std::vector<std::vector<std::uint8_t>> jpegPreviews;
  ColourSpace colourSpace = ColourSpace::UNKNOWN;  ///< by the Exif data alone
  std::string cameraMake;                          ///< at most 64 bytes, any but NUL
  std::string cameraModel;                         ///< at most 64 bytes, any but NUL
  std::string timeTaken;                           ///< the camera's time as "YYYY-MM-DDThh:mm:ss"; "" if not known
};

/// The facts of one source file, and one requested output size. A value type: copies are independent, and an instance
/// must be used by one thread at a time. A job (Thumb) owns one; every command gets a copy.
///
/// Rotations are quarter turns clockwise. "Stored" means as the pixels are in the file, before any orientation tag.
class TAVITHUMB_API ThumbInfo {
 public:
  /// Sources with at least this many pixels (1280 x 1280) are converted for the size "large".
  static constexpr std::uint32_t LARGE_ORIG_THRESHOLD = 1638400;

  /// Locked by the library during every use of Exiv2, never while libheif or a tool runs. A program that uses Exiv2
  /// itself on another thread must lock it too.
  static std::mutex exiv2_mutex_;

  /// The standard tag for the orientation of a picture.
  static const std::string stdOrientationKey;
  /// The ten maker-note tags that are read, in this order, if the standard tag is "1".
  static const std::vector<std::string> orientationKeyList_;

  /// (quarter turns clockwise, mirror left-right) for the orientation values 1 to 8.
  static const std::vector<std::pair<std::int32_t, bool>> rotateFlopMappingList_;

  /// Reads the stat record of `path`, but no image data. Throws Error 601 if the source can't be stat'ed.
  /// `size` is the requested size's name, `dimension` its box in pixels.
  ThumbInfo(const std::string& path, const std::string& size, const ThumbDimension& dimension);

  // --- Reading the facts -------------------------------------------------------------------------------------------

  /// Reads type, stored size and orientation from the file. Does nothing for a video (by extension). With
  /// `withPreview`, also writes the best embedded preview to a temporary file (ExtractEXIFPreviewInfo), which stays on
  /// disk until the owner of this record removes it, even if this call then throws.
  ///
  /// Throws Error 601 (damaged; logged), 602 (unknown type, and not a HEIF image that can be measured) or 603 (can't be
  /// opened); std::invalid_argument or std::out_of_range if the orientation tag is not a number.
  void ExtractImgInfo(bool withPreview);

  /// Reads the same facts and returns the embedded previews in Exiv2's order; none for a video or a HEIF image. Writes
  /// nothing, and keeps the path of a preview extracted earlier. Throws like ExtractImgInfo().
  std::vector<PreviewCandidate> ExtractImgInfoAndPreviews();

  /// Reads the same facts and everything else that is known, all at once; nothing else for a video or a HEIF image.
  /// Writes nothing, and keeps the path of a preview extracted earlier. Throws like ExtractImgInfo().
  PictureDetails ExtractImgInfoAndDetails();

  /// Reads the same facts, and returns a function that reads everything else when it is called, for a caller that
  /// mostly needs the facts alone: the rest takes as long again. The function keeps what was read in memory, opens the
  /// file again only for the previews, and does not depend on this record. Both throw like ExtractImgInfo().
  std::function<PictureDetails()> ExtractImgInfoForDetails();

  /// Measures the file as a HEIF image and marks the record as HEIC if its first metadata block is Exif. Otherwise sets
  /// nothing; failures of libheif are logged. Throws no exceptions of its own.
  void CheckAndGetHeif();

  /// Writes the largest embedded preview that fits the requested box (at most twice the box on one side, at least three
  /// quarters of its pixels) to "/tmp/thumb.<pid>.<seconds>.<random><extension>", with the source's times, and stores
  /// that path (GetEXIFPreviewTmpPath); stores "" if there is none or it can't be written (logged). The caller owns
  /// `image`, has read its metadata, and has locked exiv2_mutex_. Exiv2's exceptions propagate.
  void ExtractEXIFPreviewInfo(const std::unique_ptr<Exiv2::Image>& image);

  /// For a caller that recognises a type which the library does not: sets the MIME type and marks the facts as read
  /// (IsGood), but not as HEIC. Size and orientation stay as they are: not known, if the library could not read them.
  /// Accesses no file; whether the type is that of the source is not checked.
  void SetMimeType(const std::string& mimeType);

  /// The same for a HEIF image that CheckAndGetHeif() does not mark: marks it as HEIC and clears the MIME type.
  void SetHeic();

  /// For a caller that has read the source before, together with one of these two: what the getters below returned
  /// then. Accesses no file.
  void SetPicture(std::uint32_t width, std::uint32_t height, std::int32_t rotate, bool flop) {
    width_ = width;
    height_ = height;
    rotate_ = rotate;
    flop_ = flop;
  }

  // --- Facts and the request ---------------------------------------------------------------------------------------

  const std::string& GetPath() const { return path_; }          ///< the source, as given
  std::int32_t GetRotate() const { return rotate_; }            ///< from the orientation, 0 to 3
  std::int32_t GetUserRotate() const { return userRotate_; }    ///< requested by the caller, any number
  bool GetFlop() const { return flop_; }                        ///< mirror left-right, from the orientation
  bool GetEnableGIF() const { return enableGIF_; }              ///< an animated GIF may stay animated
  bool GetCropMode() const { return cropMode_; }                ///< crop to fill the box
  const std::string& GetMimeType() const { return mimeType_; }  ///< the source's; "" if not known, and for HEIC
  const std::string& GetSize() const { return size_; }          ///< the requested size's name
  ThumbDimension GetDimension() const { return dimension_; }    ///< the requested box
  std::uint32_t GetWidth() const { return width_; }             ///< stored, pixels; 0 if not known
  std::uint32_t GetHeight() const { return height_; }           ///< stored, pixels; 0 if not known
  std::uint32_t GetFileSize() const { return static_cast<std::uint32_t>(stat_.st_size); }  ///< bytes, low 32 bits
  std::string GetEXIFPreviewTmpPath() const { return exifPreviewTmpPath_; }                ///< "" if there is none
  bool IsHeic() const { return heic_; }           ///< a HEIF image, measured by libheif or set by the caller
  bool IsGood() const { return good_ || heic_; }  ///< the facts have been read

  // --- Derived from them -------------------------------------------------------------------------------------------

  /// "image/gif" for a GIF that may stay animated and is not cropped, "image/png" for PNG, else "image/jpeg".
  std::string GetOutputMimeType() const;
  /// ".gif", ".png" or ".jpg", by the same rules.
  std::string GetOutputExtension() const;
  /// Whether browsers can show the source: JPEG, PNG, GIF or BMP, by its exact MIME type.
  bool IsWebAcceptable() const;
  /// The box, in the stored orientation, into which the stored picture is scaled.
  ThumbDimension GetTargetDimension() const;
  /// Whether one of `previews`, which ExtractImgInfoAndPreviews() returned for this source, fits the requested box, so
  /// that ExtractImgInfo(true) would write it. The facts must have been read.
  bool HasFittingPreview(const std::vector<PreviewCandidate>& previews) const;
  /// False if the source is served unchanged at the requested size.
  bool IsNeedConvert() const;
  /// Whether `thumbPath` exists and, in whole seconds, is not older than the source was when this record was created.
  bool IsThumbUptoDate(const std::string& thumbPath) const;
  /// Sets the source's access and modification times (whole seconds) on `targetPath`. Returns 0, or -1 with errno set.
  int UpdateAMTime(const std::string& targetPath) const;

  // --- Names of thumbnails in the EA directory ---------------------------------------------------------------------
  // These functions don't access the disk. One whose result has a size letter throws std::out_of_range ("map::at") for
  // a size without one ("original", unknown names).

  /// "" or `_r<quarter turns>`, from the sum of both rotations modulo 4.
  std::string GetRotateSuffix() const;
  /// `<width>x<height>` of GetTargetDimension(), in pixels.
  std::string GetXString() const;
  /// "TAVIPHOTO_THUMB_M.jpg": size letter, extension.
  std::string GetAlbumexThumbEAName() const;
  /// "TAVIPHOTO:THUMB_M.jpg": its former name.
  std::string GetAlbumexOldThumbEAName() const;
  /// "TAVIFILE_THUMB_M_r1.jpg": size letter, or width and height of a box in pixels, rotation, extension.
  std::string GetBrovixThumbEAName() const;
  /// "TAVIFILETMP_THUMB_r1.jpg": a tool's output before it gets its final name; rotation, extension.
  std::string GetBrovixTmpThumbEAName() const;
  /// "TAVIAVATAR_120x120_r1.jpg": width and height, rotation, extension.
  std::string GetAvatarThumbEAName() const;
  /// "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", always.
  std::string GetCinevoThumbEAName() const;

 protected:
  friend class Thumb;     // writes the request: size, box, user rotation, flags
  friend class DcrawCmd;  // sets the size of an extracted preview

  std::string path_;                ///< the source
  std::string size_;                ///< name of the requested size
  std::string mimeType_;            ///< the source's; "" if not known
  std::string exifPreviewTmpPath_;  ///< the extracted preview; "" if there is none
  ThumbDimension dimension_;        ///< the requested box
  std::uint32_t width_ = 0;         ///< stored, pixels
  std::uint32_t height_ = 0;        ///< stored, pixels
  std::int32_t rotate_ = 0;         ///< quarter turns clockwise, from the orientation
  std::int32_t userRotate_ = 0;     ///< quarter turns clockwise, requested by the caller
  bool good_ = false;               ///< Exiv2 has read the facts, or the caller knows the type
  bool heic_ = false;               ///< libheif has read them, or the caller knows that it is HEIC
  bool flop_ = false;               ///< mirror left-right
  bool enableGIF_ = false;          ///< an animated GIF may stay animated
  bool cropMode_ = false;           ///< crop to fill
  struct stat64 stat_ = {};         ///< the source's record, from the constructor

 private:
  /// Reads type, size and (on request) preview with Exiv2, under its lock; returns the index of the orientation.
  std::uint32_t ReadWithExiv2(bool withPreview);
  void SetOrientation(std::uint32_t index);

  /// Reads type and size; call it under the lock.
  TAVITHUMB_LOCAL std::unique_ptr<Exiv2::Image> ReadWithExiv2();
  TAVITHUMB_LOCAL void Extract(const std::function<std::uint32_t()>& read);
};

}  // namespace tavithumb
