// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>

#include "system/folder.h"

namespace tavithumb::apps {

// How much of the disk the store takes, in bytes with all its folders. A file in the store counts what is added to it.
// What is removed is not subtracted: when the count exceeds the limit, one process measures the store while others
// wait, and removes so much that the next measurement is far away. So storing costs a few microseconds.

// A limit: bytes, or a share of the volume.
struct StoreSize {
  double number = 10;
  bool isPercent = true;
};

// "500M", "1.5G", "2TiB", "65536", "10%". Throws std::invalid_argument with a message for people.
StoreSize ParseStoreSize(const std::string& text);

// On the volume of the store that is used.
std::uint64_t BytesOf(const StoreSize& size);

// Has CountStored() keep the store below this limit, in this process and those that it forks.
void LimitStore(const StoreSize& limit);

// Counts a file if it is in the store, and removes others from there if the limit is reached.
void CountStored(const std::string& path);

// What removes something, and returns whether it is gone.
struct StoreRemoval {
  std::function<bool(const Folder& folder, const std::string& name, const struct stat& record)> removeFile;
  std::function<bool(const Folder& parent, const std::string& name)> removeFolder;  // if it is empty
  bool isDryRun = false;                                                            // nothing is gone
};

// Removes least recently used thumbnails, by the later of access and change, until the store takes at most `goal`
// bytes. Those of sources whose folder can't be read, and files with other names, stay.
void TrimStore(std::uint64_t goal, const StoreRemoval& removal);

}  // namespace tavithumb::apps
