// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavi {

// Whether the program at `path` takes all arguments of `argv` that are paths for the files of exactly these names.
// ImageMagick's convert does not: "%d" in a path means the number of a frame, as any "%" does for an animation, "*" and
// its like other files of the folder, and where a file of such a name exists, "photo.png[0]" among them, it takes its
// content for more arguments.
bool TakesNamesLiterally(const char* path, const char* const* argv);

}  // namespace tavi
