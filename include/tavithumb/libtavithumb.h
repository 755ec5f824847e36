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

/// Thumbnails of photos, camera raw, GIF, HEIF and videos. Thumb is where to start.
namespace tavithumb {

/// The job: one source file, photo or video, and one request at a time for a file that shows it at some size.
///
///     Thumb job(path, Thumb::OPT_BROVIX_EA, false);
///     std::string file = job.CalcOutputFile("medium");   // "" when nothing shows it
///     ... use file ...
///     if (job.IsNeedDelete() || job.GetOutputType() == "BrovixVarTmp") unlink(file.c_str());
///
/// A job is used by one thread at a time; several jobs may exist side by side. All work runs on the caller's thread,
/// external tools as child processes that are waited for. Storing a thumbnail switches the effective user and group
/// of the whole process to root for a moment when they are something else.
///
/// Paths are handed to external tools as they are: give absolute ones, so that no name is taken for an option. What
/// goes wrong with a tool or a file is a line in the system log (LOG_ERR).
///
/// Sizes are named "small" (120), "medium" (360), "big" (640), "large" and "xlarge" (1280), "original" (the source
/// itself), or a box in pixels. A thumbnail is up to date when it is not older, in whole seconds, than its source.
class TAVITHUMB_API Thumb {
 public:
  /// The option word is the sum of these; other bits are ignored.
  enum Option : int {
    OPT_ALBUMEX_EA = 0x01,        ///< look for the Albumex thumbnail, by its new name, then its old one
    OPT_BROVIX_EA = 0x02,         ///< look for the Brovix thumbnail
    OPT_NO_CONVERT = 0x04,        ///< never convert now; always so for videos
    OPT_ENABLE_GIF = 0x08,        ///< an animated GIF stays one
    OPT_AVATAR = 0x20,            ///< crop to fill, look in and store to the avatar slot; cancels 0x01 and 0x02
    OPT_FALLBACK_SMALLER = 0x40,  ///< CalcOutputFile(name) goes on to the smaller sizes; never for videos
  };

  /// The box in pixels of each named size.
  static const std::map<std::string, ThumbDimension> strThumbSizeMap_;
  /// The names of the sizes, from largest to smallest: the order of OPT_FALLBACK_SMALLER.
  static const std::vector<std::string> size_vec;

  /// `options`: the sum of Option values. `acceptHeic`: the caller can show HEIF itself, so a HEIC source may be the
  /// answer as it is. Reads no image data and writes nothing. Throws Error 601 when the source can't be stat'ed.
  Thumb(const std::string& path, int options, bool acceptHeic);
  /// Removes the extracted preview under /tmp, if there is one; never the output file.
  ~Thumb();
  Thumb(const Thumb&) = delete;
  Thumb& operator=(const Thumb&) = delete;

  /// Replaces all options by those of the word, the sum of Option values.
  void SetOption(int options);
  /// Quarter turns clockwise, on top of the picture's own orientation; replaces an earlier wish. Any number.
  void Rotate(int quarterTurns);

  // --- Asking for a file -------------------------------------------------------------------------------------------

  /// The path of a file that shows the source at the named size; "" for an unknown name or when nothing was found or
  /// made. A thumbnail made now is stored in the source's EA directory (SaveThumbToEA() tells how), or is a file under
  /// /var/tmp that the caller deletes when the volume takes no EA writes. The EA directory is made even when the
  /// thumbnail then fails.
  ///
  /// Reads the source's facts first, but for a video. Throws Error 601 or 603 when they are damaged or can't be opened,
  /// std::invalid_argument or std::out_of_range when the orientation tag holds no number; facts that don't exist (602)
  /// are no obstacle. On a job that served before, a failed request without OPT_FALLBACK_SMALLER may return what an
  /// earlier one left.
  std::string CalcOutputFile(const std::string& sizeName);
  /// The same for the request as it stands in the job, at first "original", without fall-back. Throws
  /// std::out_of_range ("map::at") besides, for a size name that has no thumbnails.
  std::string CalcOutputFile();

  /// The last request's answer: a path, "" when there is none; valid until the next request and while the job lives.
  const std::string& GetOutputFile() const { return outputFile_; }
  /// The answer's kind: "Albumex", "Brovix" (also for avatars), "BrovixVarTmp", "Cinevo", "Original", or "".
  std::string GetOutputType() const;
  /// The MIME type of what the job makes for the current request.
  std::string GetOutputMimeType() const { return info_.GetOutputMimeType(); }
  /// The caller deletes the output file after use: the JPEG decode that made it saved too little to be worth keeping.
  /// Goes back to false on the same job only when a later decode says so. Says nothing of the other thumbnails under
  /// /var/tmp (type "BrovixVarTmp"), which are the caller's to delete as well.
  bool IsNeedDelete() const { return needDelete_; }

  // --- Making thumbnails ahead of time -----------------------------------------------------------------------------

  /// Makes each size now, in the order given, stored as CalcOutputFile() does, up to date or not. Facts are not read
  /// here: without a CalcOutputFile() before it, a job makes only what dcraw finds in the source, unscaled. One that
  /// fails, or whose name is unknown, is logged or skipped and never throws. Returns how many were made; the output
  /// file is that of the last, "" when it failed.
  int Convert(std::initializer_list<std::string> sizeNames);
  /// The same for boxes in pixels.
  int Convert(std::initializer_list<ThumbDimension> boxes);
  /// The same for the five reduced sizes, smallest first; true when at least one was made.
  bool ConvertAll();

  // --- Writing an HTTP response on standard output -----------------------------------------------------------------

  /// The response for a named size. The first line is the caching header; the platform's outputer writes the rest, and
  /// heeds the CGI variables where GATEWAY_INTERFACE is set. False before anything was written when there is no answer;
  /// false after that line when the outputer failed, and then no second response may follow. Two jobs must not deliver
  /// at the same time in one process. Throws like CalcOutputFile(), and std::out_of_range ("map::at") for an unknown
  /// size name. A thumbnail made for it stays, also one that the caller is to delete.
  bool Output(const std::string& sizeName);
  /// The same for a box of `width` x `height` pixels; any numbers.
  bool Output(int width, int height);
  /// The same for a box of `side` x `side` pixels.
  bool Output(int side);
  /// The same for the request as it stands in the job.
  bool OutputImpl();
  /// The source itself; false when a browser can't show it. Its facts must have been read: a fresh job gives false.
  bool OutputOriginalImage();
  /// The output file as it is, as `mimeType`. An Albumex thumbnail with a user rotation is turned on the way; the pipe
  /// and the child that do so stay open until the process ends.
  bool HttpOutputFile(const std::string& mimeType);

  // --- Storing -----------------------------------------------------------------------------------------------------

  /// Moves `from` to `to`, across volumes too, mode 0777, owner 0:0, modification time `mtime` in seconds since the
  /// epoch, 0 for the source's; the access time becomes the epoch. Owner and times are left as they are, logged, where
  /// the process may not become root. False, logged, only when it could not be moved, and `from` stays; nothing but the
  /// move can fail it. The directory of `to` must exist.
  bool SaveThumbToEA(const std::string& from, const std::string& to, long mtime);
  /// Moves a thumbnail just made to GetOnlineOutputDest(), which becomes the output file, also when it fails.
  bool SaveTmpThumbToEA(const std::string& tmpPath);
  /// Moves existing thumbnails, pairs of (size name, path), to the places of their sizes; makes the EA directory.
  /// `mtime` as above; `checkMime` refuses files of another type than the job makes, by their content. True when all
  /// were stored; the good ones are stored even when others are not, and what is not stored stays where it was. Throws
  /// Error 601 or 603 when the source's facts can't be read, std::out_of_range ("map::at") for an unknown size name;
  /// the thumbnails before it are stored then.
  bool SaveExistingThumbsToEA(const std::vector<std::pair<std::string, std::string>>& thumbs, long mtime,
                              bool checkMime);
  /// The EA path where the current request's thumbnail is stored: the avatar or the Brovix name. "" when the source
  /// has none.
  std::string GetOnlineOutputDest() const;

  // --- Ways to an answer, in the order in which CalcOutputFile() tries them ----------------------------------------
  // Each returns true when the output file now names the answer. The look-ups accept only up-to-date entries, and write
  // nothing.

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
  /// The embedded preview, as it is when it lies right and is a JPEG's, else converted, becomes the thumbnail in the EA
  /// directory. The extracted file under /tmp is gone afterwards, unless it could not be moved.
  bool SetOutFromEXIFPreview();
  /// Converts now, and stores the result. False with the output type "Original" when the source itself should serve;
  /// false with an empty output file when no tool made anything of it or it could not be stored.
  bool SetOutOnline();
  /// The source itself, unchecked.
  bool SetOutOriginalImage();

 protected:
  std::int32_t type_ = 0;            ///< what GetOutputType() tells: 1 to 5 in the order of its names, 0 for ""
  std::string srcPath_;              ///< the source, as given
  bool isVideo_;                     ///< a video by its name
  bool acceptHeic_;                  ///< a HEIC source may be the answer
  ThumbInfo info_;                   ///< facts and the current request
  std::string outputFile_;           ///< what GetOutputFile() tells
  bool noOnline_ = false;            ///< never convert now
  bool tryBrovixEA_ = false;         ///< look for Brovix thumbnails
  bool tryAlbumexEA_ = false;        ///< look for Albumex thumbnails
  bool optEnableGIF_ = false;        ///< an animated GIF stays one
  bool noOriginalFallback_ = false;  ///< a source that could not be converted is no answer; SetOption() sets it
  bool needDelete_ = false;          ///< what IsNeedDelete() tells
  bool avatar_ = false;              ///< crop to fill, in the avatar slot
  bool fallbackSmaller_ = false;     ///< failing a size, the smaller ones

 private:
  bool SetOutStoredEA(const std::string& eaName, std::int32_t type);
  bool SetOutFreshEntry(const std::string& entry);
  void SetRequest(const std::string& sizeName);
  void SetRequest(const ThumbDimension& box);
  void ReadFacts();
  bool SetOutFirst();
  bool KeepMade(const std::string& work, bool eaWritable);
  bool MovePreview(const std::string& preview);
  bool ConvertPreview(const std::string& preview, const std::string& destination) const;
  bool HttpOutputTurned(const std::string& mimeType) const;
};

}  // namespace tavithumb
