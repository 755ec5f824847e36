// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tavithumb/error.h"
#include "tavithumb/export.h"
#include "tavithumb/thumb_info.h"

/// Thumbnails of photos, camera raw files, GIFs, HEIF images and videos. Start with Thumb.
namespace tavithumb {

/// The job: one source file, photo or video, and one request at a time for a file that shows it at some size.
///
///     Thumb job(path, Thumb::OPT_BROVIX_EA, false);
///     std::string file = job.CalcOutputFile("medium");   // "" if nothing shows it
///     ... use file ...
///     if (job.IsNeedDelete() || job.GetOutputType() == "BrovixVarTmp") unlink(file.c_str());
///
/// A job must be used by one thread at a time; different threads may use different jobs. All work runs on the caller's
/// thread; external tools are child processes that it waits for. Storing a thumbnail switches the effective user and
/// group of the whole process to root for a moment, unless they are root already.
///
/// Paths are passed to external tools unchanged: use absolute ones, so that no name is mistaken for an option. Failures
/// of tools and files are logged to the system log (LOG_ERR).
///
/// Sizes are named "small" (120), "medium" (360), "big" (640), "large" and "xlarge" (1280), "original" (the source
/// itself), or a box in pixels. A thumbnail is up to date if, in whole seconds, it is not older than its source.
class TAVITHUMB_API Thumb {
 public:
  /// The option word is the sum of these; other bits are ignored.
  enum Option : int {
    OPT_ALBUMEX_EA = 0x01,        ///< look for the Albumex thumbnail, by its new name, then its old one
    OPT_BROVIX_EA = 0x02,         ///< look for the Brovix thumbnail
    OPT_NO_CONVERT = 0x04,        ///< never convert now; implied for videos
    OPT_ENABLE_GIF = 0x08,        ///< keep an animated GIF animated
    OPT_AVATAR = 0x20,            ///< crop to fill, look up and store the avatar entry; cancels 0x01 and 0x02
    OPT_FALLBACK_SMALLER = 0x40,  ///< CalcOutputFile(name) falls back to smaller sizes; never for videos
  };

  /// The type of the file that answers a request; GetOutputType() returns their names.
  enum OutputType : std::int32_t {
    OUTPUT_NONE = 0,            ///< no answer yet
    OUTPUT_ALBUMEX = 1,         ///< a stored Albumex thumbnail
    OUTPUT_BROVIX = 2,          ///< a stored Brovix thumbnail or avatar
    OUTPUT_BROVIX_VAR_TMP = 3,  ///< a temporary file, for a source on a volume without EA writes
    OUTPUT_CINEVO = 4,          ///< the stored screenshot of a video
    OUTPUT_ORIGINAL = 5,        ///< the source itself
  };

  /// The box in pixels of each named size.
  static const std::map<std::string, ThumbDimension> strThumbSizeMap_;
  /// The names of the sizes, from largest to smallest: the order of OPT_FALLBACK_SMALLER.
  static const std::vector<std::string> size_vec;

  /// `options`: the sum of Option values. `acceptHeic`: the caller can show HEIF images, so a HEIC source may itself
  /// be the answer. Reads no image data and writes nothing. Throws Error 601 if the source can't be stat'ed.
  Thumb(const std::string& path, int options, bool acceptHeic);
  /// Removes the extracted preview in /tmp, if there is one; never the output file.
  ~Thumb();
  Thumb(const Thumb&) = delete;
  Thumb& operator=(const Thumb&) = delete;

  /// Replaces all options with those in `options`, the sum of Option values.
  void SetOption(int options);
  /// Rotates by quarter turns clockwise, in addition to the picture's orientation; replaces an earlier rotation. Any
  /// number.
  void Rotate(int quarterTurns);

  // --- Requesting a file -------------------------------------------------------------------------------------------

  /// The path of a file that shows the source at the named size; "" for an unknown name, or if nothing was found or
  /// made. A thumbnail made now is stored in the source's EA directory (see SaveThumbToEA()); on a volume without EA
  /// writes it is a file in /var/tmp that the caller deletes. The EA directory is created even if the thumbnail then
  /// fails.
  ///
  /// Reads the source's facts first, except for a video. Throws Error 601 or 603 if they are damaged or can't be
  /// opened, std::invalid_argument or std::out_of_range if the orientation tag is not a number; missing facts (602) are
  /// not an error. On a job that has served an earlier request, a failed one without OPT_FALLBACK_SMALLER may return
  /// the earlier result.
  std::string CalcOutputFile(const std::string& sizeName);
  /// The same for the job's current request, initially "original", without fallback. Also throws std::out_of_range
  /// ("map::at") for a size name that has no thumbnails.
  std::string CalcOutputFile();

  /// The last request's answer: a path, "" if there is none; valid until the next request or the job's destruction.
  const std::string& GetOutputFile() const { return outputFile_; }
  /// The answer's type: "Albumex", "Brovix" (also for avatars), "BrovixVarTmp", "Cinevo", "Original", or "".
  std::string GetOutputType() const;
  /// The same as a number. Keeps its previous value if the answer is a HEIC source that the caller accepts.
  OutputType GetOutputTypeCode() const { return static_cast<OutputType>(type_); }
  /// The MIME type of a thumbnail that the job makes for the current request.
  std::string GetOutputMimeType() const { return info_.GetOutputMimeType(); }
  /// Whether the caller must delete the output file after use, because the JPEG decode that made it saved too little to
  /// be worth keeping. On the same job, only a later decode resets it to false. It does not cover the other thumbnails
  /// in /var/tmp (type "BrovixVarTmp"), which the caller must delete as well.
  bool IsNeedDelete() const { return needDelete_; }

  // --- The same in steps ---------------------------------------------------------------------------------------------
  // For callers that read a source's facts once for several requests, or under their own limits. Use one job per
  // request: call SetRequest(), then ReadFacts() or SetFacts(), then CalcFromFacts().

  /// The job's facts and its current request; valid until the job is destroyed.
  const ThumbInfo& GetInfo() const { return info_; }
  /// Requests a named size; nothing is looked up or made. Throws std::out_of_range ("map::at") for an unknown name;
  /// then set another request before you use the job again.
  void SetRequest(const std::string& sizeName);
  /// Requests a box in pixels.
  void SetRequest(const ThumbDimension& box);
  /// Reads the source's facts, except for a video, and extracts the preview that fits the request. The extracted file
  /// stays on disk until it becomes the answer or the job is destroyed. Throws like CalcOutputFile(); missing facts
  /// (602) are not an error. The job drops a preview that it extracted earlier: that file stays on disk unless it has
  /// become the answer.
  void ReadFacts();
  /// Copies type, stored size and orientation from a record of the same source instead of reading them. Does not copy
  /// the request, the options or the extracted preview.
  void SetFacts(const ThumbInfo& facts);
  /// CalcOutputFile() for the job's current request, with the job's facts instead of reading them: the same result,
  /// exceptions and files left on disk.
  std::string CalcFromFacts();
  /// The sizes that CalcOutputFile(sizeName) tries, in order: the size itself, then the smaller ones if
  /// OPT_FALLBACK_SMALLER is set. Empty for an unknown name.
  std::vector<std::string> GetSizesToTry(const std::string& sizeName) const;
  /// Whether SetOutOnline() would decline because the source is served unchanged. The facts must have been read. Runs
  /// no tool and writes nothing.
  bool WouldServeSource() const;

  // --- Making thumbnails ahead of time -----------------------------------------------------------------------------

  /// Makes each size now, in the given order, even if an up-to-date thumbnail is stored, and stores it as
  /// CalcOutputFile() does. Does not read the facts: without an earlier CalcOutputFile(), a job makes only what dcraw
  /// finds in the source, unscaled. Skips a size that fails or has an unknown name (logged if an exception was the
  /// cause); never throws. Returns the number of thumbnails made; the output file is that of the last size, "" if it
  /// failed.
  int Convert(std::initializer_list<std::string> sizeNames);
  /// The same for boxes in pixels.
  int Convert(std::initializer_list<ThumbDimension> boxes);
  /// The same for the five reduced sizes, smallest first; true if at least one was made.
  bool ConvertAll();

  // --- Writing an HTTP response on standard output -----------------------------------------------------------------

  /// Writes the response for a named size. The first line is the caching header; the platform's outputer writes the
  /// rest, and honours the CGI variables if GATEWAY_INTERFACE is set. Without an answer, returns false and writes
  /// nothing. If the outputer fails after that line, also returns false; do not write a second response then. Two jobs
  /// must not deliver at the same time in one process. Throws like CalcOutputFile(), and std::out_of_range ("map::at")
  /// for an unknown size name. A thumbnail made for the response stays on disk, even one that the caller must delete.
  bool Output(const std::string& sizeName);
  /// The same for a box of `width` x `height` pixels; any numbers.
  bool Output(int width, int height);
  /// The same for a box of `side` x `side` pixels.
  bool Output(int side);
  /// The same for the job's current request.
  bool OutputImpl();
  /// Writes the source itself; false if browsers can't show it. The facts must have been read: a new job returns false.
  bool OutputOriginalImage();
  /// Writes the output file unchanged, as `mimeType`. An Albumex thumbnail with a user rotation is rotated during
  /// delivery; the pipe and the child process for that exist until the process ends.
  bool HttpOutputFile(const std::string& mimeType);

  // --- Storing -----------------------------------------------------------------------------------------------------

  /// Moves `from` to `to`, also across volumes. Sets mode 0777, owner 0:0 and the modification time `mtime` in seconds
  /// since the epoch, 0 for the source's; the access time becomes the epoch. If the process can't become root, leaves
  /// owner and times unchanged (logged). Returns false (logged) only if the move fails, which leaves `from` in place.
  /// The directory of `to` must exist.
  bool SaveThumbToEA(const std::string& from, const std::string& to, long mtime);
  /// Moves a new thumbnail to GetOnlineOutputDest(), which becomes the output file even if the move fails.
  bool SaveTmpThumbToEA(const std::string& tmpPath);
  /// Moves existing thumbnails, pairs of (size name, path), to the entries of their sizes; creates the EA directory.
  /// `mtime` as above; `checkMime` rejects files whose content is not of the type that the job makes. True if all were
  /// stored. Stores the valid ones even if others fail; a file that is not stored stays in place. Throws Error 601 or
  /// 603 if the source's facts can't be read, std::out_of_range ("map::at") for an unknown size name; the thumbnails
  /// before it have been stored.
  bool SaveExistingThumbsToEA(const std::vector<std::pair<std::string, std::string>>& thumbs, long mtime,
                              bool checkMime);
  /// The EA path where the current request's thumbnail is stored: the avatar or the Brovix name. "" if the source
  /// has none.
  std::string GetOnlineOutputDest() const;

  // --- Lookup steps, in the order in which CalcOutputFile() tries them ---------------------------------------------
  // Each returns true if the output file is now the answer. Those that look up an entry accept only up-to-date ones,
  // and write nothing.

  /// Looks for a stored thumbnail: tries those of the five lookups below that the options and the source call for, in
  /// their order. Throws std::out_of_range ("map::at") if one of them has no name for the requested size.
  bool SetOutStored();
  /// The Albumex thumbnail, by its new name.
  bool SetOutAlbumexEA();
  /// The Albumex thumbnail, by its old name.
  bool SetOutAlbumexOldEA();
  /// The Brovix thumbnail; false for a photo whose facts have not been read.
  bool SetOutBrovixEA();
  /// The screenshot of a video that Cinevo stored.
  bool SetOutCinevoEA();
  /// The avatar.
  bool SetOutAvatar();
  /// Stores the embedded preview in the EA directory: unchanged if the source is a JPEG and needs no rotation, else
  /// converted. Afterwards the extracted file in /tmp is gone, unless it could not be moved.
  bool SetOutFromEXIFPreview();
  /// Converts now, and stores the result. False with the output type "Original" if the source should be served
  /// unchanged; false with an empty output file if no tool could convert it or the result could not be stored.
  bool SetOutOnline();
  /// The source itself, unchecked.
  bool SetOutOriginalImage();

  /// Not tried by CalcOutputFile(): converts the source with the general converter, even if it would be served
  /// unchanged, and stores the result as SetOutOnline() does. False with an empty output file if it could not be
  /// converted or stored; false with the output file unchanged if the EA directory can't be created.
  bool SetOutConverted();
  /// Not tried by CalcOutputFile(): a temporary file that the caller has made, unchecked. The output type is
  /// "BrovixVarTmp", as for a thumbnail that the job makes on a volume without EA writes. The file stays on disk: the
  /// caller deletes it after use, whatever IsNeedDelete() returns.
  bool SetOutTemporary(const std::string& path);

 protected:
  std::int32_t type_ = 0;            ///< what GetOutputType() returns, an OutputType
  std::string srcPath_;              ///< the source, as given
  bool isVideo_;                     ///< a video by its name
  bool acceptHeic_;                  ///< a HEIC source may be the answer
  ThumbInfo info_;                   ///< facts and the current request
  std::string outputFile_;           ///< what GetOutputFile() returns
  bool noOnline_ = false;            ///< never convert now
  bool tryBrovixEA_ = false;         ///< look for Brovix thumbnails
  bool tryAlbumexEA_ = false;        ///< look for Albumex thumbnails
  bool optEnableGIF_ = false;        ///< keep an animated GIF animated
  bool noOriginalFallback_ = false;  ///< a source that could not be converted is not an answer; SetOption() sets it
  bool needDelete_ = false;          ///< what IsNeedDelete() returns
  bool avatar_ = false;              ///< crop to fill, store as the avatar
  bool fallbackSmaller_ = false;     ///< fall back to smaller sizes

 private:
  bool SetOutStoredEA(const std::string& eaName, std::int32_t type);
  bool SetOutFreshEntry(const std::string& entry);
  bool SetOutFirst();
  bool KeepMade(const std::string& work, bool eaWritable);
  bool MovePreview(const std::string& preview);
  bool ConvertPreview(const std::string& preview, const std::string& destination) const;
  bool HttpOutputTurned(const std::string& mimeType) const;
};

}  // namespace tavithumb
