// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavi {

// Whether the program at `path` reads all paths in `argv` literally, as files with exactly these names. ImageMagick's
// convert does not: "%d" in a path stands for the number of a frame, as any "%" does for an animation; wildcards such
// as "*" match other files of the folder; and if a file has such a name, "photo.png[0]" for example, convert reads
// further arguments from it.
bool TakesNamesLiterally(const char* path, const char* const* argv);

}  // namespace tavi
