// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

namespace tavithumb::apps {

// The names of the library's entries in EA directories. Nothing is looked up on disk.

// The parsed name of an entry in an EA directory.
struct EntryName {
  std::string consumer;  // "Albumex", "Albumex old", "Brovix", "Cinevo", "avatar"
  std::string size;      // "small", "medium", "big", "large/xlarge", "300x200"; "" if the name has none
  int quarterTurns = 0;
  bool isTemporary = false;  // unfinished, or left behind
};

// Nothing unless the whole name has the form of the library's names, or of the platform's while it copies.
std::optional<EntryName> ParseEntryName(const std::string& name);

// Whether the name is one that the platform gives an EA directory until it is complete.
bool IsUnfinishedEADirectory(const std::string& name);

// Whether the path is one that our programs give a folder for the tools' temporary files.
bool IsScratchFolder(const std::string& path);

}  // namespace tavithumb::apps
