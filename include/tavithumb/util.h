// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <array>
#include <optional>
#include <string>
#include <unordered_set>

#include "tavithumb/export.h"

namespace tavithumb {

/// Which sources are photos and which are videos, decided by the file name extension alone, in upper or lower case.
/// No file is opened.

/// True if the extension of `path` (file::GetFileExt) equals one of the strings in `extensions`. The strings are
/// compared one by one; the set hashes pointers, so a lookup by hash would miss equal strings.
TAVITHUMB_API bool IsSupportExt(const std::unordered_set<const char*>& extensions, const std::string& path);

/// One of the 32 extensions of photos, camera raw files, GIF and HEIF.
TAVITHUMB_API bool IsSupportImage(const std::string& path);

/// One of the 48 extensions that count as video, including audio and container extensions of the same players.
TAVITHUMB_API bool IsSupportVideo(const std::string& path);

/// File-system operations that the library shares. They have no state, may be called from any thread and never throw
/// on a file-system failure: they return an empty string or false, and log the failure where noted.
namespace file {

/// The text after the last "." of the whole path, in lower case. Without any ".", the whole path in lower case; with a
/// "." only in a folder's name, the text after that one, slash included ("/a.b/c" gives "b/c").
TAVITHUMB_API std::string GetFileExt(const std::string& path);

/// The full path at which the EA entry `eaName` of `sourcePath` is stored, whether or not it exists.
/// "" if the source has no EA path (logged with the entry's name).
TAVITHUMB_API std::string GetEAPath(const std::string& sourcePath, const std::string& eaName);

/// Makes sure that the EA directory of `sourcePath` exists, and leaves it on disk. False if it can't be created.
TAVITHUMB_API bool MakeEADir(const std::string& sourcePath);

/// Whether thumbnails may be written to EA directories on the volume of `destinationPath`: not on network file
/// systems, mounted disk images and volumes that can't store the names. A volume that can't be queried counts as
/// writable (logged).
TAVITHUMB_API bool IsDestSupportEAWrite(const std::string& destinationPath);

/// Moves a file with the appliance's file service, also across volumes. False (logged) if the service fails.
TAVITHUMB_API bool SDKMoveFile(const std::string& sourcePath, const std::string& destinationPath);

/// The parent directory, as returned by POSIX dirname(), of the first 4095 bytes of `path`.
TAVITHUMB_API std::string Dirname(const std::string& path);

/// A temporary path next to the EA entry: "<EA path>_<process id>_<seconds since the epoch>"; "" if the source has no
/// EA path (logged). Creates nothing. Unique for one file per process and second.
TAVITHUMB_API std::string GetEATmpPath(const std::string& sourcePath, const std::string& eaName);

/// "/var/tmp/tavithumb_<tag>_<process id>_<seconds since the epoch>". Creates and checks nothing. Unique for one file
/// per process, tag and second.
TAVITHUMB_API std::string GetVarTmpPath(const std::string& tag);

// Recognising files that the library leaves behind when its process is killed, by their names alone: nothing is looked
// up on disk.

/// The folders, apart from EA directories, in which the library creates temporary files.
inline constexpr std::array<const char*, 2> TEMPORARY_FOLDERS = {"/tmp", "/var/tmp"};

/// Whether `path` is one that the library gives a temporary file in these folders: an extracted preview, a thumbnail of
/// a source on a volume without EA writes (GetVarTmpPath() of ThumbInfo::GetBrovixTmpThumbEAName()), or the frames of a
/// GIF.
TAVITHUMB_API bool IsTemporaryFile(const std::string& path);

/// The prefix of the paths of all previews that `process` extracts: "/tmp/thumb.<process id>.".
TAVITHUMB_API std::string GetPreviewTmpPrefix(pid_t process);

/// The parsed name of a temporary file in an EA directory.
struct TemporaryEntry {
  std::string entry;  ///< the EA name that it extends, known or not; "" for a work entry, which is used for any size
  int quarterTurns;   ///< of a work entry, clockwise, -3 to 3; else 0
};

/// Parses a name that the library gives a temporary file in an EA directory: a work entry
/// (ThumbInfo::GetBrovixTmpThumbEAName()), or any EA name with the suffix that GetEATmpPath() or a JPEG decode appends.
/// Returns nothing for any other name.
TAVITHUMB_API std::optional<TemporaryEntry> ParseTemporaryEntry(const std::string& eaName);

}  // namespace file
}  // namespace tavithumb
