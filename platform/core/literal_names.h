// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavi {

// Whether the program at `path` reads all paths in `argv` literally, as the files of exactly these names. ImageMagick's
// convert does not: "%d" in a path stands for the number of a frame, as any "%" does for an animation, wildcards such
// as
// "*" match other files of the folder, and where a file has such a name, "photo.png[0]" for example, convert reads more
// arguments from it.
bool TakesNamesLiterally(const char* path, const char* const* argv);

}  // namespace tavi
