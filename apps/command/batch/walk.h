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
#include "command/batch/name_source.h"
#include "command/name_list.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Finds the photos and videos among the given files and in the given folders. Each file is found once, even if several
// names lead to it. The queue of files is bounded, so that millions of files need not fit into memory. A name in it is
// one as typed, or a path below a folder as typed.
class Walk : public NameSource {
 public:
  using OnProblem = std::function<void(const std::string& name, const Problem&)>;
  using OnFolder = std::function<void(const std::string& folder)>;

  // `onProblem` is called for each folder and list that can't be read, `onFolder` for each folder before it is read.
  Walk(
      std::vector<std::string> names, std::optional<NameList> list, Filter filter, OnProblem onProblem,
      OnFolder onFolder = [](const std::string&) {});

  std::optional<std::string> Next() override;
  bool HasEnded() const override { return HasFoundAll() && files_.empty(); }
  FoundNames Found() const override { return {count_, expectedWork_, HasFoundAll()}; }

  // What has been named is never passed over, unless it is in the list.
  const std::map<std::string, std::size_t>& PassedOver() const override { return passedOver_; }
  bool HasSkippedVideos() const override { return hasSkippedVideos_; }

  bool CanStep() const override;
  // -1 also while the queue is full.
  int Descriptor() const override;
  void Step() override;

 private:
  using Identity = std::pair<dev_t, ino_t>;
  struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
  };

  bool HasFoundAll() const { return !folder_ && folders_.empty() && names_.empty() && !list_; }
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
  OnFolder onFolder_;

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
