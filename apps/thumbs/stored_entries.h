// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

namespace tavithumb::apps {

// The names that the library gives to what it stores in EA directories. Nothing is looked up on disk.

// What the name of an entry in an EA directory tells.
struct EntryName {
  std::string consumer;  // "Albumex", "Albumex old", "Brovix", "Cinevo", "avatar"
  std::string size;      // "small", "medium", "big", "large/xlarge", "300x200"; "" where the name tells none
  int quarterTurns = 0;
  bool isTemporary = false;  // on its way to its place, or left behind
};

// Nothing unless the whole name is one that the library makes, or the platform while it copies.
std::optional<EntryName> ParseEntryName(const std::string& name);

// The name of a directory that the platform creates, and renames when it is complete.
bool IsUnfinishedEADirectory(const std::string& name);

// The path is one that a program makes for a folder which holds nothing but temporary files of the tools.
bool IsScratchFolder(const std::string& path);

}  // namespace tavithumb::apps
