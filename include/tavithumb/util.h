// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <unordered_set>

#include "tavithumb/export.h"

namespace tavithumb {

/// Which sources are photos and which are videos, decided by the file name's extension alone, upper or lower case.
/// No file is opened.

/// True when the extension of `path` (file::GetFileExt) equals one of the texts in `extensions`. The texts are
/// compared one by one; the set hashes pointers, so membership by hash would miss equal texts.
TAVITHUMB_API bool IsSupportExt(const std::unordered_set<const char*>& extensions, const std::string& path);

/// One of the 32 extensions of photos, camera raw, GIF and HEIF.
TAVITHUMB_API bool IsSupportImage(const std::string& path);

/// One of the 48 extensions that count as video; audio and container extensions of the same players are among them.
TAVITHUMB_API bool IsSupportVideo(const std::string& path);

/// File-system operations that the library shares. They keep no state, may be called from any thread and never throw
/// for a file-system failure: a failure is an empty string or false, and is logged where noted.
namespace file {

/// The lower-cased text after the last "." of the whole path. Without any "." it is the whole path in lower case;
/// with a "." only in a folder's name it is the text after that one, slash included ("/a.b/c" gives "b/c").
TAVITHUMB_API std::string GetFileExt(const std::string& path);

/// The full path at which the EA entry `eaName` of `sourcePath` is stored, whether or not it exists.
/// "" when the source has no EA path (logged with the entry's name).
TAVITHUMB_API std::string GetEAPath(const std::string& sourcePath, const std::string& eaName);

/// Makes sure that the EA directory of `sourcePath` exists, and leaves it on disk. False when it can't be made.
TAVITHUMB_API bool MakeEADir(const std::string& sourcePath);

/// Whether thumbnails may be written into EA directories on the volume of `destinationPath`: not on network file
/// systems, mounted disk images and volumes that can't hold the names. A volume that can't be queried counts as
/// writable (logged).
TAVITHUMB_API bool IsDestSupportEAWrite(const std::string& destinationPath);

/// Moves a file with the appliance's file service, across volumes too. False, logged, when the service refused.
TAVITHUMB_API bool SDKMoveFile(const std::string& sourcePath, const std::string& destinationPath);

/// The parent directory, as POSIX dirname() gives it, of the first 4095 bytes of `path`.
TAVITHUMB_API std::string Dirname(const std::string& path);

/// A temporary path beside the EA entry: "<EA path>_<process id>_<seconds since the epoch>"; "" when the source has
/// no EA path (logged). Nothing is created. Unique for one file per process and second.
TAVITHUMB_API std::string GetEATmpPath(const std::string& sourcePath, const std::string& eaName);

/// "/var/tmp/tavithumb_<tag>_<process id>_<seconds since the epoch>". Nothing is created or checked. Unique for one
/// file per process, tag and second.
TAVITHUMB_API std::string GetVarTmpPath(const std::string& tag);

}  // namespace file
}  // namespace tavithumb
