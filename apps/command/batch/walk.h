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

#include "command/batch/filter.h"
#include "command/name_list.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Finds the photos and videos among the given files and in the given folders, step by step, so that work can start with
// the first one. Each file is found once, even if several names lead to it. The queue of files is bounded, so that
// millions of files need not fit into memory.
class Walk {
 public:
  using OnProblem = std::function<void(const std::string& name, const Problem&)>;

  // `onProblem` is called for each folder and list that can't be read.
  Walk(std::vector<std::string> names, std::optional<NameList> list, Filter filter, OnProblem onProblem);

  // Removes and returns the next file in the queue, if any: its name as typed, or its path below a folder as typed.
  std::optional<std::string> Next();

  // The number of files found so far, and the sum of their ExpectedMilliseconds(); whether all have been found; whether
  // all have been taken from the queue as well.
  std::size_t Count() const { return count_; }
  double ExpectedWork() const { return expectedWork_; }
  bool HasFoundAll() const { return !folder_ && folders_.empty() && names_.empty() && !list_; }
  bool HasEnded() const { return HasFoundAll() && files_.empty(); }

  // How many files were passed over so far: photos that the filter leaves out as "excluded", others by their extension
  // in lower case, "" for none. What has been named is never one of them, unless it is in the list.
  const std::map<std::string, std::size_t>& PassedOver() const { return passedOver_; }
  // Whether there was a video that is not taken.
  bool HasSkippedVideos() const { return hasSkippedVideos_; }

  // Call Step() if CanStep() is true, or when Descriptor() is readable. Descriptor() is -1 while there is nothing to
  // wait for: the walk has ended, or the queue is full.
  bool CanStep() const;
  int Descriptor() const;
  void Step();

 private:
  using Identity = std::pair<dev_t, ino_t>;
  struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
  };

  bool HasRoom() const;
  void StartAt(const std::string& name);
  void VisitNamedFile(const std::string& name);
  void Open(const std::string& folder, int flags);
  void ReadFolder();
  void ReadList();
  void VisitEntry(const dirent& entry);
  bool IsTaken(const std::string& name);
  bool IsOther(const std::string& name);
  bool IsNewFile(const dirent& entry, unsigned char type) const;
  bool IsLeftOut(const std::string& name, int folder, const char* file);
  void PassOver(const std::string& kind);
  void Enqueue(const std::string& name);

  std::deque<std::string> names_;
  std::optional<NameList> list_;
  const Filter filter_;
  bool hasSkippedVideos_ = false;
  OnProblem onProblem_;

  std::vector<std::string> folders_;  // still to be opened
  std::unique_ptr<DIR, CloseFolder> folder_;
  std::string folderName_;
  Identity folderIdentity_;
  dev_t device_ = 0;  // of the folder that was named

  std::map<std::string, std::size_t> passedOver_;
  std::set<Identity> seenFolders_;
  std::map<Identity, std::unordered_set<std::string>> namedFiles_;  // by folder

  std::deque<std::string> files_;
  std::size_t filesBytes_ = 0;
  std::size_t count_ = 0;
  double expectedWork_ = 0;
};

}  // namespace tavithumb::apps::command
