// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/inotify.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "system/file_descriptor.h"

namespace tavithumb::apps::command {

// What has happened in a watched folder.
struct FolderEvent {
  enum class Kind {
    kFileChanged,    // written, moved in or out, removed, or given other rights or times
    kFolderCame,     // was made or moved in
    kFolderWent,     // was removed or moved out
    kWatchedGone,    // one that Add() has named is no longer there, and neither is its volume
    kEventsWereLost  // in folders that nobody knows
  };
  Kind kind;
  std::string path;  // of the file or folder; "" where events were lost
};

// The system's watches of folders, each of itself and what is directly in it.
class FolderWatches {
 public:
  // Throws std::system_error.
  FolderWatches();

  // 0, or the number of the error: ENOSPC if the system allows no more watches. A folder that is watched already has
  // its path replaced.
  int Add(const std::string& folder);
  // That folder and all below it are watched no longer.
  void Remove(const std::string& folder);

  bool IsEmpty() const { return paths_.empty(); }
  std::size_t Count() const { return paths_.size(); }

  // Readable when there are events. Read() returns some of those that are pending, in their order.
  int Descriptor() const { return file_.Number(); }
  std::vector<FolderEvent> Read();

 private:
  void Append(const inotify_event& event, std::vector<FolderEvent>* events);

  FileDescriptor file_;
  std::unordered_map<int, std::string> paths_;  // of the watches
};

}  // namespace tavithumb::apps::command
