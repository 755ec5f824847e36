// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb {

// Every temporary name of the library is built here, together with file::GetEATmpPath() and file::GetVarTmpPath(), and
// parsed by file::IsTemporaryFile() and file::ParseTemporaryEntry(). Nothing is created or checked on disk.

// "TAVIFILETMP_THUMB<rotation><extension>": the EA entry that a tool writes before the result gets its final name.
std::string WorkEntryName(const std::string& rotateSuffix, const std::string& extension);

// "<destination>_<seconds>": a decoded JPEG that still has to be rotated.
std::string DecodedPath(const std::string& destination);

// "/tmp/thumb.<process id>.<seconds>.<random>": an extracted preview, without the extension, which Exiv2 appends.
std::string PreviewPath();

// "/var/tmp/convert_thumbnail__<seconds><file name>": the whole frames of an animation.
std::string FramesPath(const std::string& source);

}  // namespace tavithumb
