// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "system/folder.h"

namespace tavithumb::apps {

// A store: a folder for the thumbnails of sources next to which none can be stored, or of all sources. It mirrors the
// paths of the sources without links, and belongs to the user who stores there.

struct StoreChoice {
  std::string folder;     // "": that of $TAVITHUMB_STORE, if any
  bool isForAll = false;  // new thumbnails of all sources are stored there
  bool isMade = true;     // the folder is made if it does not exist; otherwise, that of $TAVITHUMB_STORE may be missing
  bool isOwners = false;  // root becomes the owner of the store (of the folder of a new one), without its environment
};

// Has the library use the store in this process and those that it forks. To be called once, before any path of a
// thumbnail is asked for, by a process with one thread. Throws std::invalid_argument with a message for people if the
// folder can't be a store, std::runtime_error if the platform knows no stores.
void UseStore(const StoreChoice& choice);

// The store's folder, absolute and without links; "" if none is used.
const std::string& StoreFolder();

// Whether thumbnails are stored there even if they can be stored next to their source.
bool IsStoreForAll();

// Whether `path`, absolute and without links, is below the store.
bool IsInStore(const std::string& path);

// Whether an open folder is a store, of whichever process.
bool IsStore(const Folder& folder);

// The path of the mirror of `folder` in the store. It need not exist.
std::string MirrorOf(const std::string& folder);

// Opens the mirror of `path`, an absolute path without links. If it could not be opened, errno is set.
Folder OpenInStore(const std::string& path);

// Whether the volume where new thumbnails of `source` are stored accepts any.
bool HasPlaceFor(const std::string& source);

// The folders in which thumbnails of `source` may be stored: next to it, and in the store. They need not exist.
std::vector<std::string> EntryFoldersOf(const std::string& source);

// The path under which a new thumbnail of `source` is stored: "" if there is none. A thumbnail of that name that is
// found in another place stays there, and is not found any more.
std::string NewEntryPath(const std::string& source, const std::string& entry);

}  // namespace tavithumb::apps
