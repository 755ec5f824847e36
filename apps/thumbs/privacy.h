// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps {

// A thumbnail is as private as its source. The folder of a source's thumbnails lets in those who may read the source;
// the library then opens each thumbnail that it stores to everybody.

// Gives the stored `thumbnail` the read permissions of its source, and write permission to its owner alone. If it
// belongs to another user or group than the source, the folder alone decides who may read it.
void RestrictToReadersOf(const std::string& source, const std::string& thumbnail);

// Has the platform give the folders of the source's thumbnails, next to it and in the store, the rights that the source
// has now, where there are such folders and this process may.
void RestrictFoldersToReadersOf(const std::string& source);

// The same for one folder of a source's thumbnails. None is made unless it has been removed meanwhile.
void UpdateRightsOf(const std::string& folder);

}  // namespace tavithumb::apps
