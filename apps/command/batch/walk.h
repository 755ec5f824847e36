// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "command/batch/name_list.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Goes through the files and folders that are named, a step at a time, so that work begins with the first file. Each
// file comes once, however often and by whatever folders it is named; what comes is bounded, so that a volume of
// millions of files does not have to fit into memory.
class Walk {
 public:
  using Tell = std::function<void(const std::string& name, const Problem&)>;

  // `tell` hears of folders that can't be looked into.
  Walk(std::vector<std::string> names, std::optional<NameList> list, Tell tell);

  // The next file that has been found: its name as it was typed, or behind that of its folder as it was typed.
  std::optional<std::string> Next();

  // How many were found so far; that there are no more to be found; that those that were have been taken, too.
  std::size_t Count() const { return count_; }
  bool HasFoundAll() const { return !folder_ && folders_.empty() && names_.empty() && !list_; }
  bool HasEnded() const { return HasFoundAll() && files_.empty(); }

  // A step can be taken at once, or else when there is something to read from Descriptor(), which is -1 when it
  // would do no good: the walk has ended, or there is no room for more files.
  bool CanStep() const;
  int Descriptor() const;
  void Step();

 private:
  using Identity = std::pair<dev_t, ino_t>;
  struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
  };

  bool HasRoom() const;
  void TakeName(const std::string& name);
  void TakeFile(const std::string& name);
  void Open(const std::string& folder, int flags);
  void ReadFolder();
  void ReadList();
  void TakeEntry(const dirent& entry);
  bool IsPhoto(const dirent& entry) const;
  void Add(const std::string& name);

  std::deque<std::string> names_;
  std::optional<NameList> list_;
  Tell tell_;

  std::vector<std::string> folders_;  // to be opened
  std::unique_ptr<DIR, CloseFolder> folder_;
  std::string folderName_;
  Identity folderIdentity_;

  std::set<Identity> seenFolders_;
  std::map<Identity, std::unordered_set<std::string>> namedFiles_;  // by folder

  std::deque<std::string> files_;
  std::size_t filesBytes_ = 0;
  std::size_t count_ = 0;
};

}  // namespace tavithumb::apps::command
